// SPDX-License-Identifier: MIT
#include "threads/MainQueue.h"
#include "tracking/NativeTracking.h"

#include <gtest/gtest.h>

namespace morvellacinto::native {

struct TrackingTest : ::testing::Test {
    using HostsAnswer = std::function<void(std::uint64_t)>;

    TrackingTest() { start(); }

    // As a new run of the application would.
    void start(bool canAsk = true) {
        const KeptValues kept{
            [this](auto name) {
                const auto found = store.find(name);
                const bool isThere = found != store.end();
                return KeptText{isThere ? std::optional(found->second) : std::nullopt, canRead};
            },
            [this](auto name, auto text) { store[std::string(name)] = text; },
            [this] { return ++flushes, hasMemory ? canFlush : throw std::bad_alloc(); }};
        const auto ask = [this](HostsAnswer answer) { asked.push_back(std::move(answer)); };
        tracking = std::make_unique<NativeTracking>(
            queue, kept, canAsk ? NativeTracking::Question(ask) : nullptr);
    }
    void request() {
        tracking->requestTrackingAuthorization([this](std::uint64_t status) {
            EXPECT_EQ(status, tracking->trackingAuthorizationStatus());
            answers.push_back(status);
        });
    }

    std::shared_ptr<MainQueue> queue = std::make_shared<MainQueue>();
    std::map<std::string, std::string, std::less<>> store;
    bool canRead = true;
    bool canFlush = true;
    bool hasMemory = true;
    int flushes = 0;
    std::vector<HostsAnswer> asked;
    std::vector<std::uint64_t> answers;
    std::unique_ptr<NativeTracking> tracking;
};

using Statuses = std::vector<std::uint64_t>;

TEST_F(TrackingTest, OneQuestionAnswersAllWhoAskAndIsNeverAskedAgain) {
    request();
    request();
    EXPECT_TRUE(asked.empty()) << "never inside the call";
    queue->drain();
    ASSERT_EQ(asked.size(), 1U);
    std::thread([this] { asked[0](3); }).join();
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 3U) << "before anybody is called back";
    EXPECT_TRUE(answers.empty());
    asked[0](2);
    queue->drain();
    start(); // the next run
    request();
    queue->drain();
    EXPECT_EQ(answers, Statuses({3, 3, 3}));
    EXPECT_EQ(asked.size(), 1U);
}

TEST_F(TrackingTest, WithoutAUsableAnswerTrackingIsDeniedForThisRunOnly) {
    const auto letGo = [this] { asked.clear(); }; // which ends in a destructor
    const std::function<void()> troubles[] = {
        [this] { asked[0](0); }, [this] { asked[0](4); }, letGo,
        [&] { hasMemory = false, letGo(), hasMemory = true; }, nullptr};
    for (const auto& trouble : troubles) {
        start(trouble != nullptr); // or there is nobody to ask
        EXPECT_EQ(tracking->trackingAuthorizationStatus(), 0U) << "nothing of it was kept";
        asked.clear();
        answers.clear();
        request();
        queue->drain();
        if (trouble) {
            trouble();
        }
        queue->drain();
        EXPECT_EQ(answers, Statuses({2}));
    }
    start();
    request();
    queue->drain();
    EXPECT_TRUE(tracking->setTrackingAuthorization(3));
    asked.clear();
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 3U) << "what was decided meanwhile stays";
    queue->shutdown();
    request();
    tracking.reset(); // with a question that comes too late
}

TEST_F(TrackingTest, TheIdentifierIsGivenOutOnlyWhileTrackingIsAuthorized) {
    EXPECT_TRUE(tracking->setTrackingAuthorization(3));
    const auto identifier = tracking->advertisingIdentifier();
    for (const std::uint64_t status : {0U, 1U, 2U}) {
        EXPECT_TRUE(tracking->setTrackingAuthorization(status));
        EXPECT_EQ(tracking->advertisingIdentifier(), Uuid()) << status;
    }
    EXPECT_TRUE(tracking->setTrackingAuthorization(3));
    start();
    EXPECT_EQ(tracking->advertisingIdentifier(), identifier);
    flushes = 0;
    tracking->resetAdvertisingIdentifier();
    EXPECT_EQ(flushes, 1);
    EXPECT_NE(tracking->advertisingIdentifier(), identifier);
    EXPECT_EQ(tracking->advertisingIdentifier()->text(), store["advertisingIdentifier"]);
    store["trackingAuthorization"] = "2"; // by another process
    EXPECT_EQ(tracking->advertisingIdentifier(), Uuid());
    store["trackingAuthorization"] = "7";
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 0U);
    EXPECT_THROW(std::ignore = tracking->setTrackingAuthorization(4), std::invalid_argument);
}

TEST_F(TrackingTest, TellsWhetherADecisionIsDurableAndKeepsItInAnyCase) {
    canFlush = false;
    EXPECT_FALSE(tracking->setTrackingAuthorization(3));
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 3U);
    canRead = false;
    const auto madeMeanwhile = tracking->advertisingIdentifier();
    EXPECT_NE(madeMeanwhile, Uuid());
    EXPECT_FALSE(store.contains("advertisingIdentifier")) << "what cannot be read is not replaced";
    canRead = true;
    EXPECT_EQ(tracking->advertisingIdentifier(), madeMeanwhile);
    EXPECT_EQ(store["advertisingIdentifier"], madeMeanwhile->text());
    store["advertisingIdentifier"] = "damaged";
    start();
    EXPECT_NE(tracking->advertisingIdentifier(), madeMeanwhile);
}

} // namespace morvellacinto::native
