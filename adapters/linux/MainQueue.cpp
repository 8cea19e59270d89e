#include "MainQueue.h"

#include <cerrno>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

namespace {

int openDescriptor() {
    const int descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(),
                                "the main queue got no event descriptor");
    }
    return descriptor;
}

} // namespace

MainQueue::MainQueue() : descriptor_(openDescriptor()) {}

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
    waiting_.push_back({std::move(block), nextNumber_++});
    showState();
    changed_.notify_one();
}

void MainQueue::rethrowLater(std::exception_ptr exception) {
    const std::lock_guard lock(mutex_);
    if (ended_) {
        return;
    }
    escaped_.push_back(std::move(exception));
    showState();
    changed_.notify_one();
}

void MainQueue::drain() {
    requireMainThread("drain");
    Lock lock(mutex_);
    rethrowEscaped(lock);
    const std::uint64_t end = nextNumber_;
    while (!waiting_.empty() && waiting_.front().number < end) {
        Block block = takeFirst();
        lock.unlock();
        block();
        block = nullptr;
        lock.lock();
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
        Block block = takeFirst();
        lock.unlock();
        block();
        block = nullptr;
        lock.lock();
    }
}

void MainQueue::stop() {
    const std::lock_guard lock(mutex_);
    stopRequested_ = true;
    changed_.notify_one();
}

void MainQueue::shutdown() {
    std::deque<Waiting> dropped;
    std::deque<std::exception_ptr> droppedExceptions;
    const std::lock_guard lock(mutex_);
    ended_ = true;
    dropped.swap(waiting_);
    droppedExceptions.swap(escaped_);
    showState();
    changed_.notify_one();
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
    showState();
    lock.unlock();
    std::rethrow_exception(exception);
}

MainQueue::Block MainQueue::takeFirst() {
    Block block = std::move(waiting_.front().block);
    waiting_.pop_front();
    showState();
    return block;
}

// The descriptor is readable exactly while something waits; called under the lock.
void MainQueue::showState() noexcept {
    const bool wanted = !waiting_.empty() || !escaped_.empty();
    if (wanted == readable_) {
        return;
    }
    readable_ = wanted;
    if (wanted) {
        eventfd_write(descriptor_, 1);
    } else {
        eventfd_t count = 0;
        eventfd_read(descriptor_, &count);
    }
}

} // namespace morvellacinto::native
