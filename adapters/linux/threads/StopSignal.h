// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <unistd.h>

namespace morvellacinto::native {

/// Tells all that waits for something outside of the process that the platform shuts down. Any
/// thread.
class StopSignal {
public:
    /// Throws std::system_error when no descriptor is left.
    StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;
    ~StopSignal();

    /// Polls readable from `raise` on, for good. Only for polling.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    [[nodiscard]] bool isRaised() const noexcept { return isRaised_; }
    /// Nothing in a child made by fork(), which shares the descriptor.
    void raise() noexcept;
    [[nodiscard]] bool isForkedChild() const noexcept { return getpid() != process_; }

private:
    const pid_t process_ = getpid();
    const int descriptor_;
    std::atomic<bool> isRaised_ = false;
};

/// A new event descriptor, closed on exec. Throws std::system_error when there is none left.
[[nodiscard]] int openEventDescriptor();

} // namespace morvellacinto::native
