#include "NativeDispatch.h"

#include "MainQueue.h"
#include "WorkerPool.h"

#include <utility>

namespace morvellacinto::native {

NativeDispatch::NativeDispatch(MainQueue& mainQueue, WorkerPool& workers)
    : mainQueue_(mainQueue), workers_(workers) {}

void NativeDispatch::asyncMain(Block block) { mainQueue_.post(std::move(block)); }

void NativeDispatch::asyncGlobal(Block block) { workers_.post(std::move(block)); }

bool NativeDispatch::isMainThread() const noexcept { return mainQueue_.isMainThread(); }

} // namespace morvellacinto::native
