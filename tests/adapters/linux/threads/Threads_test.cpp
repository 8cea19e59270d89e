// SPDX-License-Identifier: MIT
#include "support/ProcessCounts.h"
#include "threads/MainQueue.h"
#include "threads/WorkerPool.h"

#include <gtest/gtest.h>

#include <future>
#include <latch>
#include <poll.h>

namespace morvellacinto::native {
namespace {

constexpr std::chrono::seconds generous(30);
constexpr std::chrono::milliseconds moment(20);
constexpr int maximumThreads = 64;

void ignore(const std::exception_ptr& /*exception*/) {}

template <class Condition>
bool comesTrue(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + generous;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    return condition();
}

// Calls `use` when it is destroyed, as what a host captured may.
std::shared_ptr<void> whenDropped(std::function<void()> use) {
    return {nullptr, [use = std::move(use)](void*) { use(); }};
}

bool readable(const MainQueue& queue) {
    pollfd wanted{queue.descriptor(), POLLIN, 0};
    return poll(&wanted, 1, 0) == 1;
}

TEST(MainQueue, ItsDescriptorIsReadableExactlyWhileABlockOrAnExceptionWaits) {
    MainQueue queue;
    EXPECT_FALSE(readable(queue));
    queue.post([] {});
    queue.post([&] { EXPECT_FALSE(readable(queue)); });
    EXPECT_TRUE(readable(queue));
    queue.drain();
    EXPECT_FALSE(readable(queue));
    queue.rethrowLater(std::make_exception_ptr(std::range_error("escaped")));
    EXPECT_TRUE(readable(queue));
    EXPECT_THROW(queue.drain(), std::range_error);
    EXPECT_FALSE(readable(queue));
    queue.post([] {});
    queue.shutdown();
    EXPECT_FALSE(readable(queue));
}

TEST(MainQueue, DrainRunsInOrderWhatWaitedAtItsEntryAndLeavesTheRestForTheNextOne) {
    MainQueue queue;
    std::string order;
    queue.post([&] {
        order += '1';
        queue.post([&] { order += '3'; });
        queue.drain(); // what waits at this moment, the new one included
        queue.post([&] { order += '4'; });
    });
    queue.post([&] { order += '2'; });
    queue.drain();
    EXPECT_EQ(order, "123");
    queue.post([] { throw std::range_error("of the host"); });
    queue.post([&] { order += '5'; });
    EXPECT_THROW(queue.drain(), std::range_error);
    EXPECT_EQ(order, "1234");
    queue.rethrowLater(std::make_exception_ptr(std::range_error("a")));
    queue.rethrowLater(std::make_exception_ptr(std::domain_error("b")));
    EXPECT_THROW(queue.drain(), std::range_error);
    EXPECT_THROW(queue.run(), std::domain_error);
    queue.drain();
    EXPECT_EQ(order, "12345");
}

TEST(MainQueue, RunEndsWithStopFromAnyThreadAndKeepsWhatWaits) {
    MainQueue queue;
    int ran = 0;
    queue.post([&] { ++ran; });
    queue.stop();
    queue.run();
    EXPECT_EQ(ran, 0) << "a stop with no run under way ends the next one";
    queue.post([&] { queue.stop(); });
    queue.post([&] { ++ran; });
    queue.run();
    EXPECT_EQ(ran, 1);
    std::thread elsewhere([&] {
        EXPECT_FALSE(queue.isMainThread());
        EXPECT_THROW(queue.drain(), std::logic_error);
        EXPECT_THROW(queue.run(), std::logic_error);
        queue.post([&] { std::thread([&] { queue.stop(); }).join(); });
    });
    queue.run();
    elsewhere.join();
    EXPECT_EQ(ran, 2);
}

TEST(MainQueue, AfterShutdownNoBlockStartsAndDroppedBlocksMayUseTheQueue) {
    MainQueue queue;
    int ran = 0;
    queue.post([&] {
        queue.shutdown();
        queue.post([&] { ++ran; });
    });
    queue.post([&, held = whenDropped([&] { queue.post([&] { ++ran; }); })] { ++ran; });
    queue.drain();
    queue.rethrowLater(std::make_exception_ptr(std::runtime_error("late")));
    queue.run();
    EXPECT_EQ(ran, 0);
}

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
    busy.mayReturn.count_down();
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
    const auto count = [&ran, captured] { ++ran; };
    busy.pool.post([&ran, held = whenDropped([&] { busy.pool.post([] {}); })] { ++ran; });
    busy.pool.post(count);
    queue.post(count);
    queue.post(count);
    std::thread ending([&] {
        busy.pool.shutdown();
        EXPECT_EQ(busy.returned, maximumThreads);
    });
    EXPECT_TRUE(comesTrue([&] { return captured.use_count() == 2; }));
    busy.mayReturn.count_down();
    ending.join();
    queue.post(count);
    busy.pool.post(count);
    busy.pool.postLasting(count);
    busy.pool.shutdown();
    EXPECT_EQ(ran, 0);
}

TEST(SerialQueue, RunsBlocksInOrderOneAtATimeAlsoAfterAnExceptionAndWithoutTheQueueObject) {
    std::atomic<int> escaped = 0;
    WorkerPool pool([&](const std::exception_ptr&) { ++escaped; });
    std::string order;
    std::promise<void> secondBegan;
    std::promise<void> last;
    {
        SerialQueue queue(pool);
        queue.post([&] {
            EXPECT_EQ(secondBegan.get_future().wait_for(moment), std::future_status::timeout);
            order += '1';
            throw std::runtime_error("from a block");
        });
        queue.post([&] {
            secondBegan.set_value();
            order += '2';
        });
        queue.post([&] { last.set_value(); });
    }
    ASSERT_EQ(last.get_future().wait_for(generous), std::future_status::ready);
    EXPECT_EQ(order, "12");
    EXPECT_EQ(escaped, 1);
}

} // namespace
} // namespace morvellacinto::native
