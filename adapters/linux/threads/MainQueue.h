// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace morvellacinto::native {

/// The host's queue: blocks that wait until the host's loop, on the thread that made the queue,
/// runs them. Its public contract is told in NativePlatform.h.
/// A block may let go of the queue's owner, so whoever calls `drain` or `run` holds a reference for
/// that time.
class MainQueue {
public:
    using Block = std::function<void()>;

    /// Throws std::system_error when no descriptor is left.
    MainQueue();
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;
    ~MainQueue();

    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    [[nodiscard]] bool isMainThread() const noexcept;

    /// Any thread. Dropped after `shutdown`.
    void post(Block block);
    /// Any thread. Keeps `exception` for the next `drain` or `run` to rethrow; lost when memory has
    /// run out.
    void rethrowLater(const std::exception_ptr& exception) noexcept;

    void drain();
    void run();
    void stop();

    /// Drops what waits; no block is taken afterwards. A `run` under way returns.
    void shutdown();
    /// Waits, on another thread than the main one, until the block that runs has returned, but not
    /// for long: it may be waiting for this very thread.
    void awaitBlock();

private:
    using Lock = std::unique_lock<std::mutex>;

    struct Waiting {
        Block block;
        std::uint64_t number;
    };

    void requireMainThread(const char* operation) const;
    void rethrowEscaped(Lock& lock);
    void runFirst(Lock& lock);
    void showChange() noexcept;

    const std::thread::id mainThread_ = std::this_thread::get_id();
    const int descriptor_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Waiting> waiting_;
    std::list<std::exception_ptr> escaped_;
    std::uint64_t nextNumber_ = 0;
    int blocksRunning_ = 0; // one within the other
    bool isReadable_ = false;
    bool stopRequested_ = false;
    bool ended_ = false;
};

} // namespace morvellacinto::native
