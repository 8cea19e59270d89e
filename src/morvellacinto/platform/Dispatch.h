// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Interface.h"

#include <functional>

namespace morvellacinto::platform {

/// The platform's two queues. All operations may be called on any thread and return at once.
class MORVELLACINTO_EXPORT Dispatch : public Interface {
public:
    using Block = std::function<void()>; ///< may throw

    /// Runs `block` later on the main thread and destroys it there; called on that thread, never
    /// before this call has returned. Blocks run in the order in which they came. After the
    /// platform's shutdown the block is dropped, where it is.
    virtual void asyncMain(Block block) = 0;

    /// Runs `block` on some background thread, at the default priority; blocks may run side by
    /// side. An exception that escapes from it is rethrown where the main queue runs. After the
    /// platform's shutdown the block is dropped.
    virtual void asyncGlobal(Block block) = 0;

    /// Whether the calling thread is the one that the main queue runs on.
    [[nodiscard]] virtual bool isMainThread() const noexcept = 0;
};

} // namespace morvellacinto::platform
