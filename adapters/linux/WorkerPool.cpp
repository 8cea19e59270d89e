#include "WorkerPool.h"

#include "SignalsBlocked.h"
#include "basics/KeepForever.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cxxabi.h>
#include <deque>
#include <list>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t maximumThreads = 256;
// What a block may wait for a busy thread before the pool grows. Growth is bound to one thread in
// this time, so that a burst of short blocks is worked off by few threads.
constexpr std::chrono::milliseconds patience(2);

} // namespace

// Shared by the pool, its threads and its serial queues, so that a thread may outlive the pool.
//
// While blocks wait, either an idle thread is on its way to them or one thread watches: it takes a
// block itself only when the busy threads have been too slow for it.
struct WorkerPool::State : std::enable_shared_from_this<State> {
    struct Waiting {
        Block block;
        SteadyClock::time_point since;
    };
    using Threads = std::list<std::thread>;

    State(std::function<void(std::exception_ptr)> handler, std::chrono::milliseconds limit)
        : escaped(std::move(handler)), idleTime(limit), process(getpid()) {}

    [[nodiscard]] bool inForkedChild() const { return getpid() != process; }
    bool post(Block& block);
    void shutdown();
    void run(Block& block) const;

    void startThread();
    void work(Threads::iterator self);
    void watch(std::unique_lock<std::mutex>& lock);
    [[nodiscard]] SteadyClock::time_point growthDue() const;
    void ensureWatcher();

    const std::function<void(std::exception_ptr)> escaped;
    const std::chrono::milliseconds idleTime;
    const pid_t process;
    std::atomic<bool> stopping = false;

    std::mutex mutex;
    std::condition_variable workOrStop;
    std::condition_variable watcherOrStop;
    std::condition_variable joined;
    std::deque<Waiting> waiting;
    Threads threads;
    std::thread lastEnded;
    std::size_t idle = 0;
    std::size_t busy = 0;
    std::size_t joining = 0;
    bool watching = false;
    SteadyClock::time_point lastTaken;
    SteadyClock::time_point lastGrown;
};

namespace {
thread_local const void* poolOfThisThread = nullptr;
} // namespace

bool WorkerPool::State::post(Block& block) {
    if (inForkedChild()) {
        return false;
    }
    const std::lock_guard lock(mutex);
    if (stopping) {
        return false;
    }
    waiting.push_back({std::move(block), SteadyClock::now()});
    if (idle > 0) {
        workOrStop.notify_one();
        return true;
    }
    try {
        ensureWatcher();
    } catch (...) {
        if (threads.empty()) {
            block = std::move(waiting.back().block);
            waiting.pop_back();
            throw;
        }
    }
    return true;
}

void WorkerPool::State::shutdown() {
    if (inForkedChild()) {
        return;
    }
    const bool onWorker = poolOfThisThread == this;
    std::deque<Waiting> dropped;
    Threads ending;
    {
        const std::lock_guard lock(mutex);
        stopping = true;
        dropped.swap(waiting);
        // Two workers that shut down side by side must not join each other.
        if (!onWorker || joining == 0) {
            for (auto thread = threads.begin(); thread != threads.end();) {
                const auto next = std::next(thread);
                if (thread->get_id() != std::this_thread::get_id()) {
                    ending.splice(ending.end(), threads, thread);
                }
                thread = next;
            }
            if (lastEnded.joinable()) {
                ending.push_back(std::move(lastEnded));
            }
        }
        ++joining;
        workOrStop.notify_all();
        watcherOrStop.notify_all();
    }
    dropped.clear();
    for (std::thread& thread : ending) {
        thread.join();
    }
    std::unique_lock lock(mutex);
    --joining;
    joined.notify_all();
    // A worker must not wait here: whoever joins threads may be waiting for this very one.
    if (!onWorker) {
        joined.wait(lock, [this] { return joining == 0; });
    }
}

void WorkerPool::State::run(Block& block) const {
    try {
        block();
    } catch (const abi::__forced_unwind&) { // a thread that is cancelled must unwind to its end
        throw;
    } catch (...) {
        escaped(std::current_exception());
    }
    block = nullptr;
}

void WorkerPool::State::startThread() {
    const auto self = threads.emplace(threads.end());
    try {
        const SignalsBlocked blocked;
        *self = std::thread([state = shared_from_this(), self] { state->work(self); });
    } catch (...) {
        threads.erase(self);
        throw;
    }
}

void WorkerPool::State::work(Threads::iterator self) {
    poolOfThisThread = this;
    pthread_setname_np(pthread_self(), "morvellacinto");
    std::unique_lock lock(mutex);
    if (watching) {
        watch(lock);
    }
    while (!stopping) {
        if (waiting.empty()) {
            ++idle;
            const bool woken = workOrStop.wait_for(lock, idleTime,
                                                   [this] { return stopping || !waiting.empty(); });
            --idle;
            if (!woken) {
                break;
            }
            if (!stopping && idle == 0 && busy > 0 && !watching) {
                watching = true;
                watch(lock);
            }
            continue;
        }
        Block block = std::move(waiting.front().block);
        waiting.pop_front();
        lastTaken = SteadyClock::now();
        ++busy;
        if (!waiting.empty() && idle == 0) {
            try {
                ensureWatcher();
            } catch (const std::system_error&) {
                // No more threads to be had: what waits is left to those that there are.
            }
        }
        lock.unlock();
        run(block);
        lock.lock();
        --busy;
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

void WorkerPool::State::watch(std::unique_lock<std::mutex>& lock) {
    while (!stopping && !waiting.empty() && SteadyClock::now() < growthDue()) {
        watcherOrStop.wait_until(lock, growthDue());
    }
    watching = false;
    lastGrown = SteadyClock::now();
}

SteadyClock::time_point WorkerPool::State::growthDue() const {
    if (busy == 0) {
        return SteadyClock::time_point::min();
    }
    return std::max(std::min(waiting.front().since, lastTaken), lastGrown) + patience;
}

void WorkerPool::State::ensureWatcher() {
    if (!watching && threads.size() < maximumThreads) {
        watching = true;
        try {
            startThread();
        } catch (...) {
            watching = false;
            throw;
        }
    }
}

WorkerPool::WorkerPool(std::function<void(std::exception_ptr)> escaped,
                       std::chrono::milliseconds idleTime)
    : state_(std::make_shared<State>(std::move(escaped), idleTime)) {}

WorkerPool::~WorkerPool() {
    if (state_->inForkedChild()) {
        // Its condition variables count threads that the child does not have: never destroy it.
        keepForever(state_);
        return;
    }
    shutdown();
    const std::lock_guard lock(state_->mutex);
    for (std::thread& thread : state_->threads) {
        thread.detach();
    }
}

void WorkerPool::post(Block block) { state_->post(block); }

void WorkerPool::shutdown() { state_->shutdown(); }

struct SerialQueue::State {
    explicit State(std::shared_ptr<WorkerPool::State> workers) : pool(std::move(workers)) {}

    const std::shared_ptr<WorkerPool::State> pool;
    std::mutex mutex;
    std::deque<WorkerPool::Block> blocks;
    bool scheduled = false;
};

// The queue's stay on a worker. One that ends before the blocks do, or never begins, drops them.
struct SerialQueue::Turn {
    explicit Turn(std::shared_ptr<State> ofQueue) : queue(std::move(ofQueue)) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    ~Turn() {
        if (done) {
            return;
        }
        std::deque<WorkerPool::Block> dropped;
        const std::lock_guard lock(queue->mutex);
        dropped.swap(queue->blocks);
        queue->scheduled = false;
    }

    void run() {
        while (!queue->pool->stopping) {
            WorkerPool::Block block;
            {
                const std::lock_guard lock(queue->mutex);
                if (queue->blocks.empty()) {
                    queue->scheduled = false;
                    done = true;
                    return;
                }
                block = std::move(queue->blocks.front());
                queue->blocks.pop_front();
            }
            queue->pool->run(block);
        }
    }

    const std::shared_ptr<State> queue;
    bool done = false;
};

SerialQueue::SerialQueue(WorkerPool& pool) : state_(std::make_shared<State>(pool.state_)) {}

SerialQueue::~SerialQueue() = default;

void SerialQueue::post(WorkerPool::Block block) {
    {
        const std::lock_guard lock(state_->mutex);
        state_->blocks.push_back(std::move(block));
        if (std::exchange(state_->scheduled, true)) {
            return;
        }
    }
    auto turn = std::make_shared<Turn>(state_);
    WorkerPool::Block begin = [turn = std::move(turn)] { turn->run(); };
    state_->pool->post(begin);
}

} // namespace morvellacinto::native
