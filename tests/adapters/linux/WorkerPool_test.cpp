#include "threads/WorkerPool.h"

#include "support/ProcessCounts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <latch>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace morvellacinto::native {
namespace {

constexpr std::chrono::seconds generous(30);

void ignore(const std::exception_ptr&) {}

template <class T>
bool ready(const std::future<T>& future) {
    return future.wait_for(generous) == std::future_status::ready;
}

// Posts to its pool when it is destroyed, as the captured objects of a host might.
struct PostsWhenDestroyed {
    PostsWhenDestroyed(WorkerPool& to, std::atomic<int>& counter) : pool(to), destroyed(counter) {}
    PostsWhenDestroyed(const PostsWhenDestroyed&) = delete;
    PostsWhenDestroyed& operator=(const PostsWhenDestroyed&) = delete;
    ~PostsWhenDestroyed() {
        pool.post([] {});
        ++destroyed;
    }
    WorkerPool& pool;
    std::atomic<int>& destroyed;
};

TEST(WorkerPool, ABlockThatBlocksDelaysNoOther) {
    WorkerPool pool(ignore);
    constexpr int count = 40;
    std::latch allRun(count);
    std::atomic<int> returned = 0;
    std::promise<void> last;
    for (int i = 0; i < count; ++i) {
        pool.post([&] {
            allRun.arrive_and_wait();
            if (returned.fetch_add(1) + 1 == count) {
                last.set_value();
            }
        });
    }
    EXPECT_TRUE(ready(last.get_future()));
    pool.shutdown();
}

TEST(WorkerPool, ABurstOfShortBlocksIsWorkedOffByFewThreads) {
    WorkerPool pool(ignore);
    std::mutex mutex;
    std::set<std::thread::id> threads;
    for (int burst = 0; burst < 20; ++burst) {
        const auto done = std::make_shared<std::latch>(1000);
        for (int i = 0; i < 1000; ++i) {
            pool.post([&, done] {
                {
                    const std::lock_guard lock(mutex);
                    threads.insert(std::this_thread::get_id());
                }
                done->count_down();
            });
        }
        done->wait();
    }
    pool.shutdown();
    EXPECT_LT(threads.size(), 64U);
}

TEST(WorkerPool, IdleThreadsEndAndLaterBlocksGetNewOnes) {
    std::thread([] {}).join(); // with the first thread a sanitizer may start one of its own
    const int before = testing::threadCount();
    WorkerPool pool(ignore, std::chrono::milliseconds(1));
    for (int round = 0; round < 20; ++round) {
        const auto together = std::make_shared<std::latch>(3);
        for (int i = 0; i < 3; ++i) {
            pool.post([together] { together->arrive_and_wait(); });
        }
        const auto deadline = std::chrono::steady_clock::now() + generous;
        // One that has ended may stay until its successor or the shutdown joins it.
        while (testing::threadCount() > before && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        ASSERT_LE(testing::threadCount(), before);
    }
}

TEST(WorkerPool, WorkersBlockAllSignalsAndTheHostsThreadKeepsItsMask) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    WorkerPool pool(ignore);
    std::promise<sigset_t> mask;
    pool.post([&] {
        sigset_t own;
        pthread_sigmask(SIG_SETMASK, nullptr, &own);
        mask.set_value(own);
    });
    const sigset_t worker = mask.get_future().get();
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (const int signal : {SIGPIPE, SIGTERM, SIGINT, SIGALRM, SIGCHLD, SIGUSR1, SIGPROF}) {
        EXPECT_EQ(sigismember(&worker, signal), 1) << signal;
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
    }
}

TEST(WorkerPool, AnEscapedExceptionIsHandedOverAndTheThreadWorksOn) {
    std::promise<std::string> told;
    WorkerPool pool([&](const std::exception_ptr& escaped) {
        try {
            std::rethrow_exception(escaped);
        } catch (const std::runtime_error& error) {
            told.set_value(error.what());
        }
    });
    pool.post([] { throw std::runtime_error("from a block"); });
    EXPECT_EQ(told.get_future().get(), "from a block");
    std::promise<void> next;
    pool.post([&] { next.set_value(); });
    EXPECT_TRUE(ready(next.get_future()));
}

TEST(WorkerPool, ShutdownDropsWaitingBlocksWithoutALockAndJoinsRunningOnes) {
    WorkerPool pool(ignore);
    SerialQueue queue(pool);
    std::promise<void> running;
    std::promise<void> goOn;
    std::atomic<int> destroyed = 0;
    std::atomic<bool> finished = false;
    std::atomic<bool> ranAfterwards = false;
    queue.post([&] {
        running.set_value();
        goOn.get_future().wait();
        finished = true;
    });
    running.get_future().wait();
    for (int i = 0; i < 3; ++i) {
        queue.post([&, posts = std::make_shared<PostsWhenDestroyed>(pool, destroyed)] {
            ranAfterwards = true;
        });
    }
    std::thread ending([&] { pool.shutdown(); });
    // Blocks are dropped as soon as shutdown has begun, whether or not the running one returns.
    const auto deadline = std::chrono::steady_clock::now() + generous;
    bool dropped = false;
    while (!dropped && std::chrono::steady_clock::now() < deadline) {
        const auto ran = std::make_shared<std::atomic<bool>>(false);
        pool.post([ran] { *ran = true; });
        dropped = ran.use_count() == 1 && !*ran;
        std::this_thread::yield();
    }
    EXPECT_TRUE(dropped);
    goOn.set_value();
    ending.join();
    EXPECT_TRUE(finished);
    EXPECT_FALSE(ranAfterwards);
    EXPECT_EQ(destroyed, 3);
    queue.post([&] { ranAfterwards = true; });
    pool.post([&] { ranAfterwards = true; });
    pool.shutdown();
    EXPECT_FALSE(ranAfterwards);
}

TEST(WorkerPool, MayBeShutDownOrDestroyedByItsOwnWorkersWhileOthersPost) {
    for (int round = 0; round < 50; ++round) {
        auto pool = std::make_shared<WorkerPool>(ignore);
        WorkerPool& posted = *pool;
        for (int i = 0; i < 2; ++i) {
            pool->post([&] { posted.shutdown(); });
        }
        std::thread poster([&] {
            for (int i = 0; i < 100; ++i) {
                posted.post([] {});
            }
        });
        poster.join();
        pool->shutdown();
    }
    std::promise<void> gone;
    {
        auto pool = std::make_shared<WorkerPool>(ignore);
        std::promise<void> onlyHolder;
        pool->post([pool, &gone, only = onlyHolder.get_future().share()]() mutable {
            only.wait();
            pool.reset();
            gone.set_value();
        });
        pool.reset();
        onlyHolder.set_value();
    }
    EXPECT_TRUE(ready(gone.get_future()));
}

TEST(SerialQueue, RunsBlocksInOrderOneAtATimeAlsoAfterAnExceptionAndWithoutTheQueueObject) {
    WorkerPool pool(ignore);
    std::vector<int> order;
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
    std::promise<void> last;
    {
        SerialQueue queue(pool);
        for (int i = 0; i < 500; ++i) {
            queue.post([&, i] {
                overlapped = overlapped || inside.fetch_add(1) != 0;
                order.push_back(i);
                --inside;
                if (i % 100 == 0) {
                    throw std::runtime_error("from a block");
                }
            });
        }
        queue.post([&] { last.set_value(); });
    }
    ASSERT_TRUE(ready(last.get_future()));
    EXPECT_FALSE(overlapped);
    ASSERT_EQ(order.size(), 500U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(WorkerPool, InAForkedChildEndsAtOnceAndTheParentsPoolWorksOn) {
    WorkerPool pool(ignore);
    std::promise<void> warm;
    pool.post([&] { warm.set_value(); });
    ASSERT_TRUE(ready(warm.get_future()));
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        alarm(20);
        pool.post([] {});
        pool.shutdown();
        pool.~WorkerPool();
        _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    std::promise<void> after;
    pool.post([&] { after.set_value(); });
    EXPECT_TRUE(ready(after.get_future()));
}

} // namespace
} // namespace morvellacinto::native
