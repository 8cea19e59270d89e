#include "threads/MainQueue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace morvellacinto::native {
namespace {

bool readable(const MainQueue& queue) {
    pollfd wanted{queue.descriptor(), POLLIN, 0};
    return poll(&wanted, 1, 0) == 1;
}

std::exception_ptr failure(const char* text) {
    return std::make_exception_ptr(std::runtime_error(text));
}

template <class Call>
std::string thrownBy(Call call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing";
}

TEST(MainQueue, ItsDescriptorIsReadableExactlyWhileSomethingWaits) {
    MainQueue queue;
    EXPECT_FALSE(readable(queue));
    queue.post([] {});
    queue.post([&] { EXPECT_FALSE(readable(queue)); });
    EXPECT_TRUE(readable(queue));
    queue.drain();
    EXPECT_FALSE(readable(queue));
    queue.rethrowLater(failure("escaped"));
    EXPECT_TRUE(readable(queue));
    EXPECT_EQ(thrownBy([&] { queue.drain(); }), "escaped");
    EXPECT_FALSE(readable(queue));
    queue.post([] {});
    queue.shutdown();
    EXPECT_FALSE(readable(queue));
}

TEST(MainQueue, DrainRunsInOrderWhatWaitedAtItsEntryAndLeavesTheRestForTheNextOne) {
    MainQueue queue;
    std::vector<int> order;
    queue.post([&] {
        order.push_back(1);
        queue.post([&] { order.push_back(3); });
        queue.drain(); // what waits at this moment, the new one included
        queue.post([&] { order.push_back(4); });
    });
    queue.post([&] { order.push_back(2); });
    queue.drain();
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
    queue.drain();
    EXPECT_EQ(order, (std::vector{1, 2, 3, 4}));
}

TEST(MainQueue, AnExceptionReachesTheCallerAndTheRestStaysQueued) {
    MainQueue queue;
    int ran = 0;
    queue.post([] { throw std::runtime_error("first"); });
    queue.post([&] { ++ran; });
    EXPECT_EQ(thrownBy([&] { queue.drain(); }), "first");
    EXPECT_EQ(ran, 0);
    queue.rethrowLater(failure("a"));
    queue.rethrowLater(failure("b"));
    EXPECT_EQ(thrownBy([&] { queue.drain(); }), "a");
    EXPECT_EQ(thrownBy([&] { queue.run(); }), "b");
    EXPECT_EQ(ran, 0);
    queue.drain();
    EXPECT_EQ(ran, 1);
}

TEST(MainQueue, RunEndsWithStopFromAnyThreadAndKeepsWhatWaits) {
    MainQueue queue;
    int ran = 0;
    queue.post([&] { ++ran; });
    queue.stop();
    queue.run();
    EXPECT_EQ(ran, 0) << "a stop with no run under way ends the next one";
    queue.post([&] {
        ++ran;
        queue.stop();
    });
    queue.post([&] { ++ran; });
    queue.run();
    EXPECT_EQ(ran, 2);
    std::thread elsewhere([&] { queue.post([&] { std::thread([&] { queue.stop(); }).join(); }); });
    queue.run();
    elsewhere.join();
    EXPECT_EQ(ran, 3);
}

TEST(MainQueue, RefusesToRunOnAnyOtherThread) {
    MainQueue queue;
    EXPECT_TRUE(queue.isMainThread());
    std::thread([&] {
        EXPECT_FALSE(queue.isMainThread());
        EXPECT_THROW(queue.drain(), std::logic_error);
        EXPECT_THROW(queue.run(), std::logic_error);
    }).join();
}

TEST(MainQueue, AfterShutdownNoBlockStartsAndDroppedBlocksMayUseTheQueue) {
    MainQueue queue;
    int ran = 0;
    queue.post([&] {
        queue.shutdown();
        queue.post([&] { ++ran; });
    });
    const auto posts = [&queue](int* number) {
        delete number;
        queue.post([] { FAIL() << "ran after shutdown"; });
    };
    queue.post([&, captured = std::shared_ptr<int>(new int, posts)] { ++ran; });
    queue.drain();
    queue.rethrowLater(failure("late"));
    queue.drain();
    queue.run();
    EXPECT_EQ(ran, 0);
}

TEST(MainQueue, ShutdownOnAnotherThreadEndsARunOnceItsBlockHasReturned) {
    MainQueue queue;
    std::promise<void> awaited;
    std::thread other;
    queue.post([&] {
        other = std::thread([&] {
            queue.shutdown();
            queue.awaitBlock();
            awaited.set_value();
        });
        const auto isAwaited = awaited.get_future();
        EXPECT_EQ(isAwaited.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    });
    queue.run();
    other.join();
}

} // namespace
} // namespace morvellacinto::native
