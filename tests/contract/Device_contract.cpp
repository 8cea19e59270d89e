#include "contract/Contracts.h"

#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/platform/Network.h"
#include "morvellacinto/platform/Tracking.h"

#include <atomic>

namespace morvellacinto::contract {
namespace {

TEST_P(DeviceContract, ATrackingRequestIsAnsweredOnceWithAStatusThatHoldsFromThenOn) {
    platform::Tracking& tracking = platform().tracking();
    std::atomic<int> answers = 0;
    std::atomic<bool> isTrue = false;
    tracking.requestTrackingAuthorization([&](std::uint64_t status) {
        isTrue = status != 0 && status == tracking.trackingAuthorizationStatus();
        ++answers;
    });
    ASSERT_TRUE(pumpUntil([&] { return answers > 0; }));
    subject().settle();
    EXPECT_TRUE(isTrue);
    EXPECT_EQ(answers, 1);
}

TEST_P(DeviceContract, WhatIsUnknownIsNothingAndWhatIsWrongThrows) {
    EXPECT_EQ(platform().network().currentNetworkInfo("no such interface"), std::nullopt);
    EXPECT_THROW(platform().assertionHandler().handleFailureInFunction("f", "file", 1, "text"),
                 platform::AssertionFailure);
}

} // namespace
} // namespace morvellacinto::contract
