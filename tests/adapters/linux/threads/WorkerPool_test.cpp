#include "threads/WorkerPool.h"

#include "support/ProcessCounts.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace morvellacinto::native {
namespace {

constexpr std::chrono::seconds generous(30);
constexpr int maximumThreads = 64;

void ignore(const std::exception_ptr&) {}

template <class Condition>
bool comesTrue(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + generous;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    return condition();
}

// A pool whose threads are all taken until `release`.
struct BusyPool {
    BusyPool() {
        for (int i = 0; i < maximumThreads; ++i) {
            pool.post([this] {
                ++started;
                mayReturn.wait();
                ++returned;
            });
        }
        EXPECT_TRUE(comesTrue([this] { return started == maximumThreads; }));
    }
    void release() { mayReturn.count_down(); }

    WorkerPool pool{ignore};
    std::atomic<int> started = 0;
    std::atomic<int> returned = 0;
    std::latch mayReturn{1};
};

TEST(WorkerPool, SixtyFourBlocksRunAtATimeBesidesTheLastingOnesAndTheRestWaits) {
    BusyPool busy;
    std::atomic<int> later = 0;
    for (int i = 0; i < 10; ++i) {
        busy.pool.post([&] { ++later; });
    }
    std::promise<void> lasting;
    busy.pool.postLasting([&] { lasting.set_value(); });
    EXPECT_EQ(lasting.get_future().wait_for(generous), std::future_status::ready);
    EXPECT_EQ(later, 0);
    busy.release();
    EXPECT_TRUE(comesTrue([&] { return later == 10; }));
    busy.pool.shutdown();
}

TEST(WorkerPool, IdleThreadsEndAndLaterBlocksGetNewOnes) {
    std::thread([] {}).join(); // with the first thread a sanitizer may start one of its own
    const int before = testing::threadCount();
    WorkerPool pool(ignore, std::chrono::milliseconds(1));
    for (int round = 0; round < 3; ++round) {
        const auto together = std::make_shared<std::latch>(3);
        pool.postLasting([together] { together->arrive_and_wait(); });
        pool.post([together] { together->arrive_and_wait(); });
        pool.post([together] { together->arrive_and_wait(); });
        EXPECT_TRUE(comesTrue([&] { return testing::threadCount() <= before; }));
    }
}

TEST(WorkerPool, ShutdownDropsWhatWaitsAtOnceAndJoinsWhatRuns) {
    BusyPool busy;
    SerialQueue queue(busy.pool);
    std::atomic<int> ran = 0;
    const auto captured = std::make_shared<int>();
    // What a host captured may post when it dies, which takes the pool's lock.
    const auto posts = [&busy](int* number) {
        delete number;
        busy.pool.post([] {});
    };
    busy.pool.post([&, own = std::shared_ptr<int>(new int, posts), captured] { ++ran; });
    queue.post([&, captured] { ++ran; });
    queue.post([&, captured] { ++ran; });
    std::thread ending([&] {
        busy.pool.shutdown();
        EXPECT_EQ(busy.returned, maximumThreads);
    });
    EXPECT_TRUE(comesTrue([&] { return captured.use_count() == 1; }));
    busy.release();
    ending.join();
    queue.post([&] { ++ran; });
    busy.pool.post([&] { ++ran; });
    busy.pool.postLasting([&] { ++ran; });
    busy.pool.shutdown();
    EXPECT_EQ(ran, 0);
}

TEST(WorkerPool, MayBeShutDownOrDestroyedByItsOwnWorkersWhileOthersPost) {
    for (int round = 0; round < 50; ++round) {
        auto pool = std::make_shared<WorkerPool>(ignore);
        for (int i = 0; i < 2; ++i) {
            pool->post([&posted = *pool] { posted.shutdown(); });
        }
        for (int i = 0; i < 100; ++i) {
            pool->post([] {});
        }
        pool->shutdown();
    }
    std::promise<void> onlyHolder;
    std::promise<void> gone;
    auto pool = std::make_shared<WorkerPool>(ignore);
    pool->post([pool, &gone, only = onlyHolder.get_future().share()]() mutable {
        only.wait();
        pool.reset();
        gone.set_value();
    });
    pool.reset();
    onlyHolder.set_value();
    EXPECT_EQ(gone.get_future().wait_for(generous), std::future_status::ready);
}

TEST(SerialQueue, RunsBlocksInOrderOneAtATimeAlsoAfterAnExceptionAndWithoutTheQueueObject) {
    std::atomic<int> escaped = 0;
    WorkerPool pool([&](const std::exception_ptr&) { ++escaped; });
    std::vector<int> order;
    std::promise<void> secondBegan;
    std::promise<void> last;
    {
        SerialQueue queue(pool);
        queue.post([&] {
            const auto began = secondBegan.get_future();
            EXPECT_EQ(began.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
            order.push_back(1);
            throw std::runtime_error("from a block");
        });
        queue.post([&] {
            secondBegan.set_value();
            order.push_back(2);
        });
        queue.post([&] { last.set_value(); });
    }
    ASSERT_EQ(last.get_future().wait_for(generous), std::future_status::ready);
    EXPECT_EQ(order, (std::vector{1, 2}));
    EXPECT_EQ(escaped, 1);
}

} // namespace
} // namespace morvellacinto::native
