#pragma once

#include <atomic>
#include <chrono>

namespace morvellacinto::native {

/// How long an operation may wait for others: until a point in time, or until nobody wants its
/// result any more.
class Patience {
public:
    /// From now on. `unwanted`, when given, outlives this.
    explicit Patience(std::chrono::milliseconds time, const std::atomic<bool>* unwanted = nullptr)
        : deadline_(std::chrono::steady_clock::now() + time), unwanted_(unwanted) {}

    [[nodiscard]] bool isOver() const noexcept {
        return (unwanted_ != nullptr && *unwanted_) ||
               std::chrono::steady_clock::now() >= deadline_;
    }

private:
    std::chrono::steady_clock::time_point deadline_;
    const std::atomic<bool>* unwanted_;
};

} // namespace morvellacinto::native
