// SPDX-License-Identifier: MIT
#include "CurlSession.h"

#include "Transfer.h"
#include "TransferLoop.h"

namespace morvellacinto::native {

class CurlSession::Task final : public platform::HttpTask {
public:
    explicit Task(std::shared_ptr<Transfer> transfer) : transfer_(std::move(transfer)) {}

    void resume() override {
        if (isResumed_.exchange(true)) {
            return;
        }
        const std::shared_ptr<Transfer> transfer = std::move(transfer_);
        if (const CurlSession& session = transfer->session(); !session.isInvalidated_) {
            transfer->start();
            session.loop_->submit(transfer);
        }
    }

private:
    std::shared_ptr<Transfer> transfer_; // until resumed
    std::atomic<bool> isResumed_ = false;
};

std::shared_ptr<platform::HttpTask> CurlSession::dataTask(platform::HttpRequest request,
                                                          Completion completion) {
    return std::make_shared<Task>(
        std::make_shared<Transfer>(shared_from_this(), std::move(request), std::move(completion)));
}

} // namespace morvellacinto::native
