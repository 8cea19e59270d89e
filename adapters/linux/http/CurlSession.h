#pragma once

#include "threads/WorkerPool.h"

#include "morvellacinto/platform/HttpSession.h"

#include <atomic>
#include <memory>

namespace morvellacinto::native {

class Transfer;
class TransferLoop;

/// A session over the transfers of one TransferLoop. Session and tasks may be dropped while their
/// transfers run.
class CurlSession final : public platform::HttpSession {
public:
    CurlSession(platform::HttpSessionConfiguration configuration,
                std::shared_ptr<TransferLoop> loop, WorkerPool& pool);

    [[nodiscard]] std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest request,
                                                               Completion completion) override;
    void finishTasksAndInvalidate() override;

private:
    struct State;
    class Task;

    std::shared_ptr<State> state_;
};

} // namespace morvellacinto::native
