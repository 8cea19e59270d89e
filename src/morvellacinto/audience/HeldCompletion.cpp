#include "morvellacinto/audience/HeldCompletion.h"

#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/Platform.h"

namespace morvellacinto {
namespace {

using Completion = KRAudienceManager::Completion;

void releaseOnMainQueue(const Completion* completion) noexcept {
    try {
        std::shared_ptr<const Completion> last(completion);
        platform::Dispatch& dispatch = platform::current()->dispatch();
        if (!dispatch.isMainThread()) {
            // Moved, so that this thread has no reference left to drop after the main one.
            dispatch.asyncMain([last = std::move(last)] {});
        }
    } catch (const std::exception&) {
        return; // shut down, or out of memory
    }
}

} // namespace

HeldCompletion held(Completion completion) {
    if (!completion) {
        return nullptr;
    }
    return {new Completion(std::move(completion)), releaseOnMainQueue};
}

} // namespace morvellacinto
