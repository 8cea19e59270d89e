// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/HeldCompletion.h"

#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/Platform.h"

namespace morvellacinto {
namespace {

using Completion = KRAudienceManager::Completion;

struct Holder {
    explicit Holder(Completion given) : completion(std::move(given)) {}
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() { releaseOnMainQueue(std::move(completion)); }
    Completion completion;
};

} // namespace

HeldCompletion held(Completion completion) {
    if (!completion) {
        return nullptr;
    }
    const auto holder = std::make_shared<Holder>(std::move(completion));
    return {holder, &holder->completion};
}

void releaseOnMainQueue(Completion completion) noexcept {
    try {
        if (completion && !platform::current()->dispatch().isMainThread()) {
            platform::current()->dispatch().asyncMain([completion = std::move(completion)] {});
        }
    } catch (const std::exception&) {
        return; // shut down, or out of memory
    }
}

} // namespace morvellacinto
