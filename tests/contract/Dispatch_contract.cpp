#include "contract/Contracts.h"

#include "morvellacinto/platform/Dispatch.h"

#include <atomic>
#include <memory>
#include <stdexcept>
#include <vector>

namespace morvellacinto::contract {
namespace {

TEST_P(DispatchContract, MainBlocksRunInOrderOnTheMainThreadAndNeverInsideTheCall) {
    platform::Dispatch& dispatch = platform().dispatch();
    EXPECT_TRUE(dispatch.isMainThread());
    std::vector<int> order;
    for (int i = 0; i < 3; ++i) {
        dispatch.asyncMain([&, i] {
            EXPECT_TRUE(dispatch.isMainThread());
            order.push_back(i);
            dispatch.asyncMain([&, i] { order.push_back(10 + i); });
            EXPECT_LE(order.size(), 3U);
        });
    }
    EXPECT_TRUE(order.empty());
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 6; }));
    EXPECT_EQ(order, (std::vector{0, 1, 2, 10, 11, 12}));
}

TEST_P(DispatchContract, GlobalBlocksRunOffTheMainThreadAndReachItThroughItsQueue) {
    platform::Dispatch& dispatch = platform().dispatch();
    int arrived = 0;
    for (int i = 0; i < 20; ++i) {
        dispatch.asyncGlobal([&] {
            EXPECT_FALSE(dispatch.isMainThread());
            dispatch.asyncMain([&] { ++arrived; });
        });
    }
    EXPECT_EQ(arrived, 0);
    EXPECT_TRUE(pumpUntil([&] { return arrived == 20; }));
}

TEST_P(DispatchContract, AnExceptionOfAGlobalBlockSurfacesWhereTheMainQueueRuns) {
    platform::Dispatch& dispatch = platform().dispatch();
    dispatch.asyncGlobal([] { throw std::range_error("from a global block"); });
    EXPECT_THROW((void)pumpUntil([] { return false; }), std::range_error);
    bool ran = false;
    dispatch.asyncMain([&] { ran = true; });
    EXPECT_TRUE(pumpUntil([&] { return ran; }));
}

TEST_P(DispatchContract, ShutdownDropsWaitingAndLaterBlocks) {
    platform::Dispatch& dispatch = platform().dispatch();
    std::atomic<int> ran = 0;
    const auto captured = std::make_shared<int>();
    const std::weak_ptr<int> observed = captured;
    dispatch.asyncMain([&, captured] { ++ran; });
    platform().shutdown();
    EXPECT_EQ(observed.use_count(), 1) << "a dropped block is destroyed";
    dispatch.asyncMain([&, captured] { ++ran; });
    dispatch.asyncGlobal([&, captured] { ++ran; });
    EXPECT_EQ(observed.use_count(), 1);
    EXPECT_EQ(ran, 0);
}

} // namespace
} // namespace morvellacinto::contract
