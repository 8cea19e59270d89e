// SPDX-License-Identifier: MIT
#include "DelayedBlocks.h"

namespace morvellacinto::host {

DelayedBlocks::~DelayedBlocks() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void DelayedBlocks::add(std::chrono::duration<double> delay, std::function<void()> block) {
    const std::lock_guard lock(mutex_);
    waiting_.emplace(Clock::now() + std::chrono::duration_cast<Clock::duration>(delay),
                     std::move(block));
    if (!thread_.joinable()) {
        thread_ = std::thread([this] { run(); });
    }
    changed_.notify_all();
}

void DelayedBlocks::run() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
        if (waiting_.empty()) {
            changed_.wait(lock);
        } else if (const auto due = waiting_.begin()->first; Clock::now() < due) {
            changed_.wait_until(lock, due);
        } else {
            const std::function<void()> block = std::move(waiting_.begin()->second);
            waiting_.erase(waiting_.begin());
            lock.unlock();
            block();
            lock.lock();
        }
    }
}

} // namespace morvellacinto::host
