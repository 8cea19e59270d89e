#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <memory>

namespace morvellacinto::native {

/// Background threads for blocks of host and library code. Threads are made when blocks wait and no
/// thread is free, so that a block that takes long delays no other, and end once they have been
/// idle for a while. They block all signals.
///
/// Making a pool starts no thread. In a child made by fork() a pool does nothing: blocks are
/// dropped, and shutdown and destructor return at once.
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

    /// Any thread. Dropped after `shutdown`. Throws std::system_error when not even a first thread
    /// can be made.
    void post(Block block);

    /// Drops the blocks that wait and joins the threads once the blocks that run have returned; the
    /// thread that calls this, should it be one of them, is left to end by itself.
    void shutdown();

private:
    friend class SerialQueue;
    struct State;
    std::shared_ptr<State> state_;
};

/// Runs blocks one at a time, in order, on the threads of a pool. Outlives neither its pool nor the
/// pool's shutdown in effect: blocks are then dropped.
class SerialQueue {
public:
    explicit SerialQueue(WorkerPool& pool);
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;
    ~SerialQueue();

    /// Any thread. Blocks that were posted run even when the queue object is gone.
    void post(WorkerPool::Block block);

private:
    struct State;
    struct Turn;
    std::shared_ptr<State> state_;
};

} // namespace morvellacinto::native
