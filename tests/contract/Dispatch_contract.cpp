#include "contract/Contracts.h"

#include "morvellacinto/platform/Dispatch.h"

#include <stdexcept>

namespace morvellacinto::contract {
namespace {

TEST_P(DispatchContract, MainBlocksRunInOrderOnTheMainThreadAndNeverInsideTheCall) {
    platform::Dispatch& dispatch = platform().dispatch();
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

TEST_P(DispatchContract, GlobalBlocksRunOffTheMainThreadAndTheirExceptionsSurfaceOnIt) {
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
    dispatch.asyncGlobal([] { throw std::range_error("from a global block"); });
    EXPECT_THROW((void)pumpUntil([] { return false; }), std::range_error);
}

TEST_P(DispatchContract, ShutdownDestroysWaitingBlocksAndDropsLaterOnes) {
    platform::Dispatch& dispatch = platform().dispatch();
    const auto captured = std::make_shared<int>();
    dispatch.asyncMain([captured] { ADD_FAILURE(); });
    platform().shutdown();
    dispatch.asyncMain([captured] { ADD_FAILURE(); });
    dispatch.asyncGlobal([captured] { ADD_FAILURE(); });
    EXPECT_EQ(captured.use_count(), 1);
}

} // namespace
} // namespace morvellacinto::contract
