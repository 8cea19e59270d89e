#include "CurlSession.h"

#include "TransferLoop.h"

#include <exception>
#include <utility>

namespace morvellacinto::native {

// What the session shares with its tasks and transfers.
struct CurlSession::State {
    State(platform::HttpSessionConfiguration settings, std::shared_ptr<TransferLoop> ofTransport,
          WorkerPool& pool)
        : configuration(
              std::make_shared<const platform::HttpSessionConfiguration>(std::move(settings))),
          loop(std::move(ofTransport)), queue(pool) {}

    void deliver(Transfer::Outcome outcome);

    const std::shared_ptr<const platform::HttpSessionConfiguration> configuration;
    const std::shared_ptr<TransferLoop> loop;
    SerialQueue queue;
    std::atomic<bool> invalidated = false;
};

void CurlSession::State::deliver(Transfer::Outcome outcome) {
    auto kept = std::make_shared<Transfer::Outcome>(std::move(outcome));
    try {
        queue.post([kept = std::move(kept), loop = loop]() mutable {
            const auto ended = std::move(kept); // and is released here, on the session's queue
            if (ended->completion && !loop->isStopped()) {
                ended->completion(std::move(ended->data), std::move(ended->response),
                                  std::move(ended->error));
            }
        });
    } catch (const std::exception&) {
        // Not one worker could be made: there is nowhere to run the completion.
    }
}

class CurlSession::Task final : public platform::HttpTask {
public:
    Task(std::shared_ptr<State> state, std::shared_ptr<Transfer> transfer)
        : state_(std::move(state)), transfer_(std::move(transfer)) {}

    void resume() override {
        if (resumed_.exchange(true)) {
            return;
        }
        const std::shared_ptr<Transfer> transfer = std::move(transfer_);
        if (!state_->invalidated) {
            state_->loop->submit(transfer);
        }
    }

private:
    const std::shared_ptr<State> state_;
    std::shared_ptr<Transfer> transfer_; // until resumed
    std::atomic<bool> resumed_ = false;
};

CurlSession::CurlSession(platform::HttpSessionConfiguration configuration,
                         std::shared_ptr<TransferLoop> loop, WorkerPool& pool)
    : state_(std::make_shared<State>(std::move(configuration), std::move(loop), pool)) {}

std::shared_ptr<platform::HttpTask> CurlSession::dataTask(platform::HttpRequest request,
                                                          Completion completion) {
    auto transfer = std::make_shared<Transfer>(
        state_->configuration, std::move(request), std::move(completion),
        [state = state_](Transfer::Outcome outcome) { state->deliver(std::move(outcome)); });
    return std::make_shared<Task>(state_, std::move(transfer));
}

void CurlSession::finishTasksAndInvalidate() { state_->invalidated = true; }

} // namespace morvellacinto::native
