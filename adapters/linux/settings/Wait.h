#pragma once

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace morvellacinto::native {

/// Others had what is needed for longer than this could wait.
class BusyError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// How long an operation may wait for other processes and threads: until a point in time, or until
/// the settings are being closed.
class Wait {
public:
    /// From now on; `closing` outlives this.
    Wait(std::chrono::milliseconds longest, const std::atomic<bool>& closing)
        : deadline_(std::chrono::steady_clock::now() + longest), closing_(&closing) {}

    [[nodiscard]] bool isUnwanted() const noexcept { return *closing_; }
    /// Pauses for a moment; false when it is time to give up.
    [[nodiscard]] bool goesOn() const {
        if (isUnwanted() || std::chrono::steady_clock::now() >= deadline_) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(300)); // a commit takes longer
        return true;
    }

private:
    std::chrono::steady_clock::time_point deadline_;
    const std::atomic<bool>* closing_;
};

} // namespace morvellacinto::native
