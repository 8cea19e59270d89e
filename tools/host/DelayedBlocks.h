// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace morvellacinto::host {

/// Runs blocks on a thread of its own when their time has come. The thread starts with the first
/// block and ends with this object, which drops what is left.
class DelayedBlocks {
public:
    DelayedBlocks() = default;
    DelayedBlocks(const DelayedBlocks&) = delete;
    DelayedBlocks& operator=(const DelayedBlocks&) = delete;
    ~DelayedBlocks();

    /// Any thread.
    void add(std::chrono::duration<double> delay, std::function<void()> block);

private:
    using Clock = std::chrono::steady_clock;

    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<Clock::time_point, std::function<void()>> waiting_;
    bool ending_ = false;
    std::thread thread_;
};

} // namespace morvellacinto::host
