#include "morvellacinto/audience/HeldCompletion.h"

#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/Platform.h"

namespace morvellacinto {
namespace {

void releaseOnMainQueue(const KRAudienceManager::Completion* completion) noexcept {
    try {
        HeldCompletion last(completion);
        const auto platform = platform::current();
        if (!platform->dispatch().isMainThread()) {
            // Moved, so that this thread has no reference left to drop after the main one.
            platform->dispatch().asyncMain([last = std::move(last)] {});
        }
    } catch (const std::exception&) {
        return; // shut down, or out of memory
    }
}

} // namespace

HeldCompletion held(KRAudienceManager::Completion completion) {
    return completion ? HeldCompletion(new auto(std::move(completion)), releaseOnMainQueue)
                      : nullptr;
}

} // namespace morvellacinto
