#pragma once

#include "morvellacinto/platform/Dispatch.h"

namespace morvellacinto::native {

class MainQueue;
class WorkerPool;

/// The main queue and the worker pool, as the library sees them. Both must outlive it.
class NativeDispatch final : public platform::Dispatch {
public:
    NativeDispatch(MainQueue& mainQueue, WorkerPool& workers);

    void asyncMain(Block block) override;
    void asyncGlobal(Block block) override;
    [[nodiscard]] bool isMainThread() const noexcept override;

private:
    MainQueue& mainQueue_;
    WorkerPool& workers_;
};

} // namespace morvellacinto::native
