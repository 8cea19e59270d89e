// SPDX-License-Identifier: MIT
#include "MainQueue.h"

#include "StopSignal.h"

#include <chrono>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

constexpr std::chrono::milliseconds longestWaitForBlock(100);

MainQueue::MainQueue() : descriptor_(openEventDescriptor()) {}

MainQueue::~MainQueue() {
    shutdown();
    close(descriptor_);
}

bool MainQueue::isMainThread() const noexcept { return std::this_thread::get_id() == mainThread_; }

void MainQueue::post(Block block) {
    const std::lock_guard lock(mutex_);
    if (ended_) {
        return;
    }
    // Without memory this throws, and the block goes away after the lock.
    waiting_.push_back({nullptr, nextNumber_++});
    waiting_.back().block.swap(block);
    showChange();
}

void MainQueue::rethrowLater(const std::exception_ptr& exception) noexcept {
    const std::lock_guard lock(mutex_);
    try {
        if (!ended_) {
            escaped_.push_back(exception);
            showChange();
        }
    } catch (const std::bad_alloc&) {
        // There is no place to keep it.
    }
}

void MainQueue::drain() {
    requireMainThread("drain");
    Lock lock(mutex_);
    rethrowEscaped(lock);
    const std::uint64_t end = nextNumber_;
    while (!waiting_.empty() && waiting_.front().number < end) {
        runFirst(lock);
    }
}

void MainQueue::run() {
    requireMainThread("run");
    Lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] {
            return ended_ || stopRequested_ || !escaped_.empty() || !waiting_.empty();
        });
        if (ended_ || std::exchange(stopRequested_, false)) {
            return;
        }
        rethrowEscaped(lock);
        runFirst(lock);
    }
}

void MainQueue::stop() {
    const std::lock_guard lock(mutex_);
    stopRequested_ = true;
    changed_.notify_all();
}

void MainQueue::shutdown() {
    std::list<std::exception_ptr> dropped;
    Lock lock(mutex_);
    ended_ = true;
    dropped.swap(escaped_);
    while (!waiting_.empty()) {
        Block block;
        block.swap(waiting_.front().block);
        waiting_.pop_front();
        lock.unlock();
        block = nullptr;
        lock.lock();
    }
    showChange();
}

void MainQueue::awaitBlock() {
    if (!isMainThread()) {
        Lock lock(mutex_);
        changed_.wait_for(lock, longestWaitForBlock, [this] { return blocksRunning_ == 0; });
    }
}

void MainQueue::requireMainThread(const char* operation) const {
    if (!isMainThread()) {
        throw std::logic_error(std::string(operation) +
                               " was called on a thread that did not create the platform");
    }
}

void MainQueue::rethrowEscaped(Lock& lock) {
    if (escaped_.empty()) {
        return;
    }
    const std::exception_ptr exception = std::move(escaped_.front());
    escaped_.pop_front();
    showChange();
    lock.unlock();
    std::rethrow_exception(exception);
}

// Holds the lock again afterwards, also when the block throws.
void MainQueue::runFirst(Lock& lock) {
    struct Running {
        MainQueue& queue;
        Lock& lock;
        ~Running() {
            lock.lock();
            --queue.blocksRunning_;
            queue.changed_.notify_all();
        }
    };
    Block block;
    block.swap(waiting_.front().block);
    waiting_.pop_front();
    showChange();
    ++blocksRunning_;
    lock.unlock();
    const Running running{*this, lock};
    std::exchange(block, nullptr)(); // and is destroyed before it counts as returned
}

// The descriptor is readable exactly while something waits; called under the lock.
void MainQueue::showChange() noexcept {
    const bool isReadable = !waiting_.empty() || !escaped_.empty();
    if (std::exchange(isReadable_, isReadable) != isReadable) {
        eventfd_t count = 0;
        isReadable ? eventfd_write(descriptor_, 1) : eventfd_read(descriptor_, &count);
    }
    changed_.notify_all();
}

} // namespace morvellacinto::native
