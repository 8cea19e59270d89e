#include "WorkerPool.h"

#include "SignalsBlocked.h"

#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>

namespace morvellacinto::native {

namespace {
constexpr std::size_t maximumThreads = 64;
thread_local const void* poolOfThisThread = nullptr;
} // namespace

// Shared by the pool, its threads and its serial queues, so that a thread may outlive the pool.
struct WorkerPool::State : std::enable_shared_from_this<State> {
    using Blocks = std::list<Block>; // which neither allocates nor throws when it is emptied
    using Threads = std::list<std::thread>;

    State(std::function<void(std::exception_ptr)> handler, std::chrono::milliseconds limit)
        : escaped(std::move(handler)), idleTime(limit) {}

    void post(Block block);
    void shutdown();
    void run(Block& block) const;
    void startThread(Block lasting);
    void work(Threads::iterator self, Block& lasting);
    void runWaiting(std::unique_lock<std::mutex>& lock);

    const std::function<void(std::exception_ptr)> escaped;
    const std::chrono::milliseconds idleTime;

    std::mutex mutex;
    std::condition_variable workOrStop;
    std::condition_variable joined;
    Blocks waiting;
    Threads threads;
    std::thread lastEnded;
    std::size_t counted = 0;
    std::size_t idle = 0;
    std::atomic<bool> stopping = false;
    bool joining = false;
};

void WorkerPool::State::post(Block block) {
    Blocks one;
    one.push_back(std::move(block));
    const std::lock_guard lock(mutex);
    if (stopping) {
        return;
    }
    waiting.splice(waiting.end(), one);
    if (idle >= waiting.size()) {
        workOrStop.notify_one();
    } else if (counted < maximumThreads) {
        try {
            startThread({});
        } catch (...) {
            if (counted == 0) {
                one.splice(one.end(), waiting, std::prev(waiting.end()));
                throw;
            }
        }
    }
}

void WorkerPool::State::shutdown() {
    const bool onWorker = poolOfThisThread == this;
    Blocks dropped;
    Threads ending;
    std::unique_lock lock(mutex);
    stopping = true;
    dropped.swap(waiting);
    workOrStop.notify_all();
    if (onWorker && joining) {
        return; // whoever joins threads may be waiting for this very one
    }
    joined.wait(lock, [this] { return !joining; });
    joining = true;
    for (auto thread = threads.begin(); thread != threads.end();) {
        const auto next = std::next(thread);
        if (thread->get_id() != std::this_thread::get_id()) {
            ending.splice(ending.end(), threads, thread);
        }
        thread = next;
    }
    std::thread ended = std::move(lastEnded);
    lock.unlock();
    dropped.clear();
    for (std::thread& thread : ending) {
        thread.join();
    }
    if (ended.joinable()) {
        ended.join();
    }
    lock.lock();
    joining = false;
    joined.notify_all();
}

void WorkerPool::State::run(Block& block) const {
    try {
        block();
    } catch (...) {
        escaped(std::current_exception());
    }
    block = nullptr;
}

// Called under the lock.
void WorkerPool::State::startThread(Block lasting) {
    const bool counts = lasting == nullptr;
    const auto self = threads.emplace(threads.end());
    try {
        const SignalsBlocked blocked;
        *self = std::thread([state = shared_from_this(), self,
                             first = std::move(lasting)]() mutable { state->work(self, first); });
    } catch (...) {
        threads.erase(self);
        throw;
    }
    counted += counts ? 1 : 0;
}

void WorkerPool::State::work(Threads::iterator self, Block& lasting) {
    poolOfThisThread = this;
    pthread_setname_np(pthread_self(), "morvellacinto");
    const bool counts = lasting == nullptr;
    if (!counts) {
        run(lasting);
    }
    std::unique_lock lock(mutex);
    if (counts) {
        runWaiting(lock);
        --counted;
    }
    if (stopping) {
        return; // joined by whoever shuts the pool down
    }
    std::thread previous = std::exchange(lastEnded, std::move(*self));
    threads.erase(self);
    lock.unlock();
    if (previous.joinable()) {
        previous.join();
    }
}

void WorkerPool::State::runWaiting(std::unique_lock<std::mutex>& lock) {
    while (!stopping) {
        if (waiting.empty()) {
            ++idle;
            const bool woken = workOrStop.wait_for(lock, idleTime,
                                                   [this] { return stopping || !waiting.empty(); });
            --idle;
            if (!woken) {
                return;
            }
            continue;
        }
        Blocks taken;
        taken.splice(taken.end(), waiting, waiting.begin());
        lock.unlock();
        run(taken.front());
        taken.clear();
        lock.lock();
    }
}

WorkerPool::WorkerPool(std::function<void(std::exception_ptr)> escaped,
                       std::chrono::milliseconds idleTime)
    : state_(std::make_shared<State>(std::move(escaped), idleTime)) {}

WorkerPool::~WorkerPool() {
    shutdown();
    const std::lock_guard lock(state_->mutex);
    for (std::thread& thread : state_->threads) {
        thread.detach();
    }
}

void WorkerPool::post(Block block) { state_->post(std::move(block)); }

void WorkerPool::postLasting(Block block) {
    const std::lock_guard lock(state_->mutex);
    if (!state_->stopping) {
        state_->startThread(std::move(block));
    }
}

void WorkerPool::shutdown() { state_->shutdown(); }

struct SerialQueue::State {
    explicit State(std::shared_ptr<WorkerPool::State> workers) : pool(std::move(workers)) {}

    const std::shared_ptr<WorkerPool::State> pool;
    std::mutex mutex;
    WorkerPool::State::Blocks blocks;
    bool isScheduled = false;
};

// The queue's stay on a worker. One that never begins, or is cut short, drops the blocks: they may
// hold the queue.
struct SerialQueue::Turn {
    explicit Turn(std::shared_ptr<State> ofQueue) : queue(std::move(ofQueue)) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    ~Turn() {
        WorkerPool::State::Blocks dropped;
        const std::lock_guard lock(queue->mutex);
        if (isUnderWay) {
            dropped.swap(queue->blocks);
            queue->isScheduled = false;
        }
    }

    void run() {
        while (!queue->pool->stopping) {
            WorkerPool::State::Blocks taken;
            {
                const std::lock_guard lock(queue->mutex);
                if (queue->blocks.empty()) {
                    queue->isScheduled = false;
                    isUnderWay = false;
                    return;
                }
                taken.splice(taken.end(), queue->blocks, queue->blocks.begin());
            }
            queue->pool->run(taken.front());
        }
    }

    const std::shared_ptr<State> queue;
    bool isUnderWay = false;
};

SerialQueue::SerialQueue(WorkerPool& pool) : state_(std::make_shared<State>(pool.state_)) {}

SerialQueue::~SerialQueue() = default;

void SerialQueue::post(WorkerPool::Block block) {
    WorkerPool::State::Blocks one;
    one.push_back(std::move(block));
    const auto turn = std::make_shared<Turn>(state_);
    WorkerPool::Block begin = [turn] { turn->run(); };
    {
        const std::lock_guard lock(state_->mutex);
        state_->blocks.splice(state_->blocks.end(), one);
        if (std::exchange(state_->isScheduled, true)) {
            return;
        }
        turn->isUnderWay = true;
    }
    state_->pool->post(std::move(begin));
}

} // namespace morvellacinto::native
