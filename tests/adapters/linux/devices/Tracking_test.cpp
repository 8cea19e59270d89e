#include "MainQueue.h"
#include "tracking/NativeTracking.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace morvellacinto::native {
namespace {

class TrackingTest : public ::testing::Test {
protected:
    using HostsAnswer = std::function<void(std::uint64_t)>;

    TrackingTest() { start(); }

    // As a new run of the application would.
    void start(bool canAsk = true) {
        NativeTracking::Question question;
        if (canAsk) {
            question = [this](HostsAnswer answer) { asked.push_back(std::move(answer)); };
        }
        tracking = std::make_unique<NativeTracking>(queue, keptValues(), question);
    }
    KeptValues keptValues() {
        return {[this](std::string_view name) {
                    const auto found = store.find(name);
                    return KeptText{found != store.end() ? std::optional(found->second)
                                                         : std::nullopt,
                                    canRead};
                },
                [this](std::string_view name, std::string_view text) {
                    store[std::string(name)] = text;
                },
                [this] { return canFlush; }};
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
    std::vector<HostsAnswer> asked;
    std::vector<std::uint64_t> answers;
    std::unique_ptr<NativeTracking> tracking;
};

using Statuses = std::vector<std::uint64_t>;

TEST_F(TrackingTest, OneQuestionAnswersAllWhoAskAndIsNeverAskedAgain) {
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 0U);
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
    request();
    queue->drain();
    EXPECT_EQ(answers, Statuses({3, 3, 3}));
    EXPECT_EQ(asked.size(), 1U);
    start();
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 3U) << "kept for the next run";
    EXPECT_TRUE(tracking->isAdvertisingTrackingEnabled());
}

TEST_F(TrackingTest, WithoutAUsableAnswerTrackingIsDeniedForThisRunOnly) {
    const std::function<void()> troubles[] = {
        [this] {
            start(false);
            request();
            queue->drain();
        },
        [this] {
            request();
            queue->drain();
            asked[0](0);
        },
        [this] {
            request();
            queue->drain();
            asked[0](4);
        },
        [this] {
            request();
            queue->drain();
            asked.clear();
        },
        [this] {
            tracking =
                std::make_unique<NativeTracking>(queue, keptValues(), [](const HostsAnswer&) {
                    throw std::runtime_error("no window to ask in");
                });
            request();
            EXPECT_THROW(queue->drain(), std::runtime_error);
        },
    };
    for (const auto& trouble : troubles) {
        start();
        asked.clear();
        answers.clear();
        trouble();
        EXPECT_EQ(tracking->trackingAuthorizationStatus(), 2U);
        queue->drain();
        EXPECT_EQ(answers, Statuses({2}));
    }
    start();
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 0U) << "nothing of it was kept";
}

TEST_F(TrackingTest, TheIdentifierIsGivenOutOnlyWhileTrackingIsAuthorized) {
    EXPECT_EQ(tracking->advertisingIdentifier(), Uuid());
    EXPECT_TRUE(store.empty());
    EXPECT_TRUE(tracking->setTrackingAuthorization(3));
    const auto identifier = tracking->advertisingIdentifier();
    EXPECT_NE(identifier, Uuid());
    for (const std::uint64_t status : {0U, 1U, 2U}) {
        std::ignore = tracking->setTrackingAuthorization(status);
        EXPECT_EQ(tracking->advertisingIdentifier(), Uuid()) << status;
    }
    EXPECT_TRUE(tracking->setTrackingAuthorization(3));
    EXPECT_EQ(tracking->advertisingIdentifier(), identifier);
    start();
    EXPECT_EQ(tracking->advertisingIdentifier(), identifier);
    tracking->resetAdvertisingIdentifier();
    const auto fresh = tracking->advertisingIdentifier();
    EXPECT_NE(fresh, identifier);
    start();
    EXPECT_EQ(tracking->advertisingIdentifier(), fresh);
    const std::string another = "0B0E8A4B-7B5B-4C0E-9B57-5F3B1D0A7C42";
    store["advertisingIdentifier"] = another;
    EXPECT_EQ(tracking->advertisingIdentifier(), Uuid::parse(another)) << "by another process";
    store["trackingAuthorization"] = "2";
    EXPECT_EQ(tracking->advertisingIdentifier(), Uuid()) << "withdrawn in another process";
    store["trackingAuthorization"] = "7";
    store["advertisingIdentifier"] = "damaged";
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 0U);
    EXPECT_THROW(std::ignore = tracking->setTrackingAuthorization(4), std::invalid_argument);
    std::ignore = tracking->setTrackingAuthorization(0);
    request();
    queue->drain();
    EXPECT_EQ(asked.size(), 1U) << "asked again when the user's mind is open again";
}

TEST_F(TrackingTest, TellsWhetherADecisionIsDurableAndKeepsItInAnyCase) {
    canFlush = false;
    EXPECT_FALSE(tracking->setTrackingAuthorization(3));
    EXPECT_EQ(tracking->trackingAuthorizationStatus(), 3U);
    canRead = false;
    const auto madeMeanwhile = tracking->advertisingIdentifier();
    EXPECT_NE(madeMeanwhile, Uuid());
    EXPECT_EQ(tracking->advertisingIdentifier(), madeMeanwhile);
    EXPECT_FALSE(store.contains("advertisingIdentifier")) << "what cannot be read is not replaced";
    canRead = canFlush = true;
    EXPECT_TRUE(tracking->setTrackingAuthorization(3));
    EXPECT_EQ(tracking->advertisingIdentifier(), madeMeanwhile);
    EXPECT_EQ(store["advertisingIdentifier"], madeMeanwhile->text());
}

TEST_F(TrackingTest, AQuestionThatGoesAwayUndoesNoDecision) {
    request();
    queue->drain();
    std::ignore = tracking->setTrackingAuthorization(3);
    asked.clear();
    queue->drain();
    EXPECT_EQ(answers, Statuses({3}));
}

TEST_F(TrackingTest, AnAnswerAfterTheEndOfThePlatformHarmsNobody) {
    request();
    queue->drain();
    queue->shutdown();
    tracking.reset();
    asked[0](3);
    EXPECT_TRUE(answers.empty());
}

} // namespace
} // namespace morvellacinto::native
