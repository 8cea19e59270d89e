#include "CurlSession.h"

#include "TransferLoop.h"

#include <atomic>
#include <utility>

namespace morvellacinto::native {

namespace {

class Task final : public platform::HttpTask {
public:
    Task(std::shared_ptr<TransferLoop> loop, std::shared_ptr<Transfer> transfer)
        : loop_(std::move(loop)), transfer_(std::move(transfer)) {}

    void resume() override {
        if (resumed_.exchange(true)) {
            return;
        }
        const std::shared_ptr<Transfer> transfer = std::move(transfer_);
        if (!transfer->session().isInvalidated) {
            transfer->start();
            loop_->submit(transfer);
        }
    }

private:
    const std::shared_ptr<TransferLoop> loop_;
    std::shared_ptr<Transfer> transfer_; // until resumed
    std::atomic<bool> resumed_ = false;
};

} // namespace

CurlSession::CurlSession(platform::HttpSessionConfiguration configuration,
                         std::shared_ptr<TransferLoop> loop, WorkerPool& pool)
    : loop_(std::move(loop)),
      state_(std::make_shared<SessionState>(std::move(configuration), pool)) {}

std::shared_ptr<platform::HttpTask> CurlSession::dataTask(platform::HttpRequest request,
                                                          Completion completion) {
    return std::make_shared<Task>(
        loop_, std::make_shared<Transfer>(state_, std::move(request), std::move(completion)));
}

void CurlSession::finishTasksAndInvalidate() { state_->isInvalidated = true; }

} // namespace morvellacinto::native
