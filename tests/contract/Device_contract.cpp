#include "contract/Contracts.h"

#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/platform/Clock.h"
#include "morvellacinto/platform/Device.h"
#include "morvellacinto/platform/Network.h"
#include "morvellacinto/platform/SystemVersion.h"
#include "morvellacinto/platform/Telephony.h"
#include "morvellacinto/platform/Tracking.h"

#include <atomic>
#include <cmath>

namespace morvellacinto::contract {
namespace {

TEST_P(DeviceContract, TheClockTellsSecondsAndDoesNotRunBackwardsByItself) {
    const platform::Clock& clock = platform().clock();
    const Date first = clock.now();
    const Date second = clock.now();
    EXPECT_TRUE(std::isfinite(first.secondsSinceReference));
    EXPECT_LE(first, second);
    EXPECT_LT(Date::secondsBetween(first, second), 60);
}

TEST_P(DeviceContract, AVersionEqualToTheBoundaryCountsAndEveryOlderOneToo) {
    const platform::SystemVersion& version = platform().systemVersion();
    EXPECT_TRUE(version.isAtLeast(0, 0));
    EXPECT_FALSE(version.isAtLeast(1'000'000, 0));
    int newest = 0;
    while (version.isAtLeast(newest + 1, 0)) {
        ++newest;
    }
    int minor = 0;
    while (minor < 1000 && version.isAtLeast(newest, minor + 1)) {
        ++minor;
    }
    EXPECT_FALSE(version.isAtLeast(newest, minor + 1));
    EXPECT_TRUE(version.isAtLeast(newest, minor));
    for (int major = 0; major < newest; ++major) {
        EXPECT_TRUE(version.isAtLeast(major, 99)) << major;
    }
}

TEST_P(DeviceContract, WhatIsToldIsPlausible) {
    const platform::Device& device = platform().device();
    for (const auto& text : {device.localeIdentifier(), device.systemVersion(),
                             device.bundleIdentifier(), device.hardwareMachine()}) {
        EXPECT_FALSE(text.has_value() && text->empty());
    }
    const float level = device.batteryLevel();
    EXPECT_TRUE(level == -1.0F || (level >= 0.0F && level <= 1.0F)) << level;
    EXPECT_GE(device.batteryState(), 0);
    EXPECT_LE(device.batteryState(), 3);
    EXPECT_EQ(device.identifierForVendor(), device.identifierForVendor());

    ASSERT_NE(platform().telephony().makeInfo(), nullptr);
    const platform::Network& network = platform().network();
    for (const std::string& name :
         network.supportedInterfaces().value_or(std::vector<std::string>{})) {
        EXPECT_FALSE(name.empty());
        (void)network.currentNetworkInfo(name);
    }
    EXPECT_EQ(network.currentNetworkInfo("no such interface"), std::nullopt);
}

TEST_P(DeviceContract, ATrackingRequestIsAnsweredOnceWithAStatusThatHoldsFromThenOn) {
    platform::Tracking& tracking = platform().tracking();
    std::atomic<int> answers = 0;
    std::atomic<std::uint64_t> answered = 0;
    std::atomic<std::uint64_t> statusThen = 0;
    tracking.requestTrackingAuthorization([&](std::uint64_t status) {
        answered = status;
        statusThen = tracking.trackingAuthorizationStatus();
        ++answers;
    });
    ASSERT_TRUE(pumpUntil([&] { return answers > 0; }));
    EXPECT_NE(answered, platform::TrackingAuthorization::notDetermined);
    EXPECT_EQ(answered, statusThen);
    EXPECT_EQ(answers, 1);
}

TEST_P(DeviceContract, AFailedAssertionThrowsByDefault) {
    EXPECT_THROW(platform().assertionHandler().handleFailureInFunction("f", "file", 1, "text"),
                 platform::AssertionFailure);
}

} // namespace
} // namespace morvellacinto::contract
