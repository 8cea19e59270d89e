// SPDX-License-Identifier: MIT
#pragma once

// Read WorkerPool.h, MainQueue.h, then StopSignal.h.

#include <chrono>
#include <exception>
#include <functional>
#include <memory>

namespace morvellacinto::native {

/// The only maker of threads. A thread is made when a block waits and none is idle, up to 64, and
/// ends once it has been idle for a while; they block all signals. Making a pool starts none.
class WorkerPool {
public:
    using Block = std::function<void()>;

    /// `escaped` receives, on the worker, each exception that escapes from a block.
    explicit WorkerPool(std::function<void(std::exception_ptr)> escaped,
                        std::chrono::milliseconds idleTime = std::chrono::seconds(15));
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;
    /// As `shutdown`.
    ~WorkerPool();

    /// Any thread. Dropped after `shutdown`. Throws std::system_error, and drops the block, when no
    /// thread can be made and there is none that could run it later.
    void post(Block block);

    /// The same for a block that may run for as long as the platform lives: it gets a thread of its
    /// own at once, which does not count. Whoever posts it also sees to it that it returns when the
    /// platform shuts down.
    void postLasting(Block block);

    /// Drops the blocks that wait and joins the threads once the blocks that run have returned; the
    /// thread that calls this, should it be one of them, is left to end by itself.
    void shutdown();

private:
    friend class SerialQueue;
    struct Item;
    struct State;
    struct Strand;
    std::shared_ptr<State> state_;
};

/// Runs blocks one at a time, in order, on the threads of a pool, whose shutdown drops them.
class SerialQueue {
public:
    explicit SerialQueue(WorkerPool& pool);

    /// Any thread. Blocks that were posted run even when the queue object is gone. Throws as
    /// `WorkerPool::post` does.
    void post(WorkerPool::Block block);

private:
    const std::shared_ptr<WorkerPool::State> pool_;
    const std::shared_ptr<WorkerPool::Strand> strand_;
};

} // namespace morvellacinto::native
