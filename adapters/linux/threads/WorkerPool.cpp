// SPDX-License-Identifier: MIT
#include "WorkerPool.h"

#include <condition_variable>
#include <csignal>
#include <list>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr std::size_t maximumThreads = 64;
thread_local const void* poolOfThisThread = nullptr;

} // namespace

struct WorkerPool::Item {
    Block block;
    std::shared_ptr<Strand> strand; // null for a block of no serial queue
};

// What a serial queue has in the pool, guarded by the pool's mutex: one item that waits or runs,
// and those that come after it.
struct WorkerPool::Strand {
    std::list<Item> later;
    bool isActive = false;
};

// Shared by the pool, its threads and its serial queues, so that a thread may outlive the pool.
struct WorkerPool::State : std::enable_shared_from_this<State> {
    using Items = std::list<Item>; // which neither allocates nor throws when it is emptied
    using Threads = std::list<std::thread>;

    State(std::function<void(std::exception_ptr)> handler, std::chrono::milliseconds limit)
        : escaped(std::move(handler)), idleTime(limit) {}

    void post(Block block, const std::shared_ptr<Strand>& strand);
    void shutdown();
    void run(Block& block) const;
    void end(Items& item);
    void startThread(Block block);
    void work(Threads::iterator self, Block& block);
    void runWaiting();

    const std::function<void(std::exception_ptr)> escaped;
    const std::chrono::milliseconds idleTime;

    std::mutex mutex;
    std::condition_variable workOrStop;
    std::condition_variable joined;
    Items waiting;
    Threads threads;
    Threads lastEnded;       // one at most, joined by the next one that ends
    std::size_t counted = 0; // of the threads: those without a lasting block
    std::size_t idle = 0;
    bool stopping = false;
    bool joining = false;
};

void WorkerPool::State::post(Block block, const std::shared_ptr<Strand>& strand) {
    Items one;
    one.push_back({std::move(block), strand});
    const std::lock_guard lock(mutex);
    if (stopping) {
        return;
    }
    if (strand != nullptr && std::exchange(strand->isActive, true)) {
        strand->later.splice(strand->later.end(), one);
        return;
    }
    waiting.splice(waiting.end(), one);
    if (idle >= waiting.size()) {
        workOrStop.notify_one();
    } else if (counted < maximumThreads) {
        try {
            startThread([this] { runWaiting(); });
            ++counted;
        } catch (...) {
            if (counted == 0) {
                one.splice(one.end(), waiting, std::prev(waiting.end()));
                end(one);
                throw;
            }
        }
    }
}

// Called under the lock with an item that has run or never will: its serial queue's next one waits
// now, or is dropped with it.
void WorkerPool::State::end(Items& item) {
    const std::shared_ptr<Strand>& strand = item.front().strand;
    if (strand == nullptr) {
        return;
    }
    if (stopping) {
        item.splice(item.end(), strand->later);
    }
    strand->isActive = !strand->later.empty();
    if (strand->isActive) {
        waiting.splice(waiting.end(), strand->later, strand->later.begin());
    }
}

void WorkerPool::State::shutdown() {
    Items dropped;
    Threads ending;
    std::unique_lock lock(mutex);
    stopping = true;
    while (!waiting.empty()) {
        Items item;
        item.splice(item.end(), waiting, waiting.begin());
        end(item);
        dropped.splice(dropped.end(), item);
    }
    workOrStop.notify_all();
    if (joining && poolOfThisThread == this) {
        return; // whoever joins threads may be waiting for this very one
    }
    joined.wait(lock, [this] { return !joining; });
    joining = true;
    ending.swap(lastEnded);
    for (auto next = threads.begin(); next != threads.end();) {
        if (const auto thread = next++; thread->get_id() != std::this_thread::get_id()) {
            ending.splice(ending.end(), threads, thread);
        }
    }
    lock.unlock();
    dropped.clear();
    for (std::thread& thread : ending) {
        thread.join();
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

// Called under the lock. The thread inherits that all signals are blocked.
void WorkerPool::State::startThread(Block block) {
    const auto self = threads.emplace(threads.end());
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        *self = std::thread([state = shared_from_this(), self, first = std::move(block)]() mutable {
            state->work(self, first);
        });
    } catch (...) {
        threads.erase(self);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void WorkerPool::State::work(Threads::iterator self, Block& block) {
    poolOfThisThread = this;
    pthread_setname_np(pthread_self(), "morvellacinto");
    run(block);
    Threads previous;
    std::unique_lock lock(mutex);
    if (stopping) {
        return; // joined by whoever shuts the pool down
    }
    previous.swap(lastEnded);
    lastEnded.splice(lastEnded.end(), threads, self);
    lock.unlock();
    for (std::thread& thread : previous) {
        thread.join();
    }
}

void WorkerPool::State::runWaiting() {
    std::unique_lock lock(mutex);
    while (!stopping) {
        if (waiting.empty()) {
            ++idle;
            const bool woken = workOrStop.wait_for(lock, idleTime,
                                                   [this] { return stopping || !waiting.empty(); });
            --idle;
            if (!woken) {
                break;
            }
            continue;
        }
        Items taken;
        taken.splice(taken.end(), waiting, waiting.begin());
        lock.unlock();
        run(taken.front().block);
        lock.lock();
        end(taken);
        lock.unlock();
        taken.clear();
        lock.lock();
    }
    --counted;
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

void WorkerPool::post(Block block) { state_->post(std::move(block), nullptr); }

void WorkerPool::postLasting(Block block) {
    const std::lock_guard lock(state_->mutex);
    if (!state_->stopping) {
        state_->startThread(std::move(block));
    }
}

void WorkerPool::shutdown() { state_->shutdown(); }

SerialQueue::SerialQueue(WorkerPool& pool)
    : pool_(pool.state_), strand_(std::make_shared<WorkerPool::Strand>()) {}

void SerialQueue::post(WorkerPool::Block block) { pool_->post(std::move(block), strand_); }

} // namespace morvellacinto::native
