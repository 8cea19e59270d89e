#pragma once

#include "morvellacinto/scripted/PhoneScript.h"

#include <memory>
#include <mutex>
#include <utility>

namespace morvellacinto::scripted {

/// A script that device services read while others change it: `script->batteryLevel = 0.5F`.
/// Each such access is locked to the end of its expression. Any thread.
class SharedScript {
public:
    /// Keeps the script locked; for several changes at once, hold one from `lock()`.
    class Access {
    public:
        explicit Access(SharedScript& shared) : lock_(shared.mutex_), script_(&shared.script_) {}
        PhoneScript* operator->() const noexcept { return script_; }
        PhoneScript& operator*() const noexcept { return *script_; }

    private:
        std::unique_lock<std::recursive_mutex> lock_;
        PhoneScript* script_;
    };

    explicit SharedScript(PhoneScript script = {}) : script_(std::move(script)) {}

    [[nodiscard]] Access lock() { return Access(*this); }
    Access operator->() { return lock(); }

private:
    std::recursive_mutex mutex_; // recursive for expressions that look at the script twice
    PhoneScript script_;
};

/// The holder that several services share.
using ScriptPointer = std::shared_ptr<SharedScript>;

} // namespace morvellacinto::scripted
