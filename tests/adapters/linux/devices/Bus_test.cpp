// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include <gmock/gmock.h>

#include <future>

namespace morvellacinto::native {
namespace {

using Clock = BusConnection::Clock;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* serviceName = "com.example.Service";

BusCall callOf(const std::string& member) { return {serviceName, "/a", "com.example.A", member}; }

template <class Act>
milliseconds timeOf(Act act) {
    const auto before = Clock::now();
    act();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - before);
}

milliseconds atMost(milliseconds time) { return time + milliseconds(1000); }

struct BusTest : ::testing::Test {
    BusReply ask(const std::string& member) {
        return BusConnection(daemon.bus).call(callOf(member));
    }

    PrivateBus daemon{{serviceName}};
};

TEST_F(BusTest, DecodesWhatTheServicesSendAndLeavesOutTheRest) {
    daemon.reply("/a", "com.example.A", "Everything", "biudsoxayasa{sv}a{us}(iv)vv", 1, -7, 8U, 1.5,
                 "text", "/path", INT64_MIN, 2, 1, 2, 1, "x", 3, "k", "u", 1U, "l", "as", 0, "m",
                 "a(ii)", 1, 4, 5, 1, 9U, "dropped", 3, "s", "in", "d", 0.5, "g", "as");
    const std::array<std::byte, 2> twoBytes{std::byte{1}, std::byte{2}};
    const Array expected = Array::of(
        {true, -7, 8, 1.5, "text", "/path", nullptr, Value(std::span<const std::byte>(twoBytes)),
         Array::of({"x"}), Object{{"k", 1}, {"l", Array()}, {"m", Array::of({Array::of({4, 5})})}},
         Object(), Array::of({3, "in"}), 0.5, nullptr});
    EXPECT_EQ(ask("Everything").body, expected);
}

TEST_F(BusTest, TheCallsOfAQuestionTakeOneTimeOutTogetherAndEachGetsItsOwnAnswer) {
    daemon.onCall("/a", "com.example.A", "Silent", [](sd_bus_message*) {});
    std::vector<BusCall> calls(20, callOf("Silent"));
    for (std::size_t i = 0; i < calls.size(); i += 2) {
        calls[i].member = "Give" + std::to_string(i);
        daemon.reply("/a", "com.example.A", calls[i].member, "u", static_cast<unsigned>(i));
    }
    calls[7].member = "Nothing";
    calls[9].path = "no path";
    BusConnection question(daemon.bus);
    std::vector<BusReply> replies;
    const auto took = timeOf([&] { replies = question.callAll(calls); });
    EXPECT_GE(took, busTimeout * 9 / 10);
    EXPECT_LT(took, atMost(busTimeout));
    for (std::size_t i = 0; i < replies.size(); ++i) {
        EXPECT_EQ(replies[i].succeeded(), i % 2 == 0) << i;
        EXPECT_EQ(replies[i].body, i % 2 == 0 ? Array::of({i}) : Array());
    }
    EXPECT_EQ(replies[15].errorName, BusError::timedOut);
    const auto later = timeOf([&] {
        for (int round = 0; round < 8; ++round) {
            EXPECT_FALSE(question.call(callOf("Silent")).succeeded());
        }
    });
    EXPECT_LT(later, atMost(milliseconds(0))) << "one deadline for all rounds of a question";
    EXPECT_THAT(daemon.told, ::testing::IsEmpty()) << "it is the service that is silent";
}

TEST_F(BusTest, AFrozenBusCostsItsTimeOutAndNothingAfterAStop) {
    daemon.freeze();
    const auto took = timeOf([this] { EXPECT_FALSE(ask("Echo").succeeded()); });
    EXPECT_GE(took, busTimeout * 9 / 10);
    EXPECT_LT(took, atMost(busTimeout));
    EXPECT_FALSE(ask("Echo").succeeded());
    EXPECT_THAT(daemon.told, ElementsAre(HasSubstr("accepts connections but does not answer")));
    auto waiting = std::async(std::launch::async, [this] {
        BusConnection connection(daemon.bus);
        return connection.call(callOf("Echo"), Clock::now() + std::chrono::minutes(1)).errorName;
    });
    daemon.stopSignal.raise();
    EXPECT_LT(timeOf([&] { EXPECT_EQ(waiting.get(), BusError::disconnected); }),
              atMost(milliseconds(50)));
    EXPECT_EQ(ask("Echo").errorName, BusError::disconnected);
}

TEST_F(BusTest, ABusThatIsMissingCostsNothingAndIsToldOnceUntilItAnswersAgain) {
    const auto isGone = [this] { return ask("Echo").errorName == BusError::disconnected; };
    daemon.stop();
    EXPECT_LT(timeOf([&] { EXPECT_TRUE(isGone() && isGone()); }), atMost(milliseconds(0)));
    daemon.start();
    EXPECT_EQ(ask("Echo").errorName, BusError::serviceUnknown);
    daemon.serve({serviceName});
    daemon.onCall("/a", "com.example.A", "Die", [](sd_bus_message* call) {
        shutdown(sd_bus_get_fd(sd_bus_message_get_bus(call)), SHUT_RDWR);
    });
    EXPECT_EQ(ask("Die").errorName, BusError::noReply);
    daemon.stop();
    EXPECT_TRUE(isGone() && isGone());
    EXPECT_THAT(daemon.told, ::testing::SizeIs(2));
}

} // namespace
} // namespace morvellacinto::native
