#include "MockService.h"
#include "PrivateBus.h"
#include "support/Attack.h"
#include "support/ProcessCounts.h"

#include "bus/BusConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <future>

namespace morvellacinto::native {
namespace {

using Clock = BusConnection::Clock;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* serviceName = "com.example.Service";
constexpr std::chrono::seconds aMinute(60);

BusCall callOf(const std::string& member) { return {serviceName, "/a", "com.example.A", member}; }

// How long `act` takes.
template <class Act>
milliseconds timeOf(Act act) {
    const auto before = Clock::now();
    act();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - before);
}

// What a wait of `time` may take: next to nothing more in an attack, else what busy machines need.
milliseconds atMost(milliseconds time) {
    return time + milliseconds(testing::isAttack() ? 50 : 1000);
}

class BusTest : public ::testing::Test {
protected:
    PrivateBus daemon;
    Bus& bus = daemon.bus;
};

class Service : public MockService {
public:
    Service() : MockService(serviceName) {
        on("Silent", [](sd_bus_message*) {});
        on("Echo", [](sd_bus_message* call) {
            const char* text = "";
            sd_bus_message_read(call, "s", &text);
            reply(call, values("s", text));
        });
    }
    void on(const std::string& member, Method method) {
        onCall("/a", "com.example.A", member, std::move(method));
    }
};

TEST_F(BusTest, DecodesWhateverAMessageHolds) {
    Service service;
    service.on("Everything", [](sd_bus_message* call) {
        reply(call, [](sd_bus_message* message) {
            sd_bus_message_append(message, "ybnqiuxtdsog", 200, 1, -5, 6, -7, 8U, INT64_MIN,
                                  UINT64_MAX, 1.5, "text", "/path", "as");
            sd_bus_message_append(message, "ayasa{sv}a{us}(iv)v", 2, 1, 2, 1, "x", 2, "k", "u", 1U,
                                  "l", "as", 0, 1, 9U, "dropped", 3, "s", "in", "v", "d", 0.5);
            sd_bus_message_append(message, "h", 0);
        });
    });
    const BusReply answer = bus.call(callOf("Everything"));
    ASSERT_TRUE(answer.succeeded()) << answer.errorName;
    const std::array<std::byte, 2> twoBytes{std::byte{1}, std::byte{2}};
    const Array expected =
        Array::of({200, true, -5, 6, -7, 8, INT64_MIN, UINT64_MAX, 1.5, "text", "/path", "as",
                   Value(std::span<const std::byte>(twoBytes)), Array::of({"x"}),
                   Object{{"k", 1}, {"l", Array()}}, Object(), Array::of({3, "in"}), 0.5, nullptr});
    EXPECT_EQ(answer.body, expected);
}

TEST_F(BusTest, EachCallOfAQuestionGetsItsOwnAnswer) {
    Service service;
    std::vector<BusCall> calls(20, callOf("Echo"));
    for (std::size_t i = 0; i < calls.size(); ++i) {
        calls[i].arguments = [text = std::to_string(i)](sd_bus_message* message) {
            return sd_bus_message_append_basic(message, 's', text.c_str());
        };
    }
    calls[7] = callOf("Nothing");
    calls[8].path = "no path";
    const auto replies = BusConnection(bus).callAll(calls, Clock::now() + aMinute);
    for (std::size_t i = 0; i < replies.size(); ++i) {
        EXPECT_EQ(replies[i].body, i == 7 || i == 8 ? Array() : Array::of({std::to_string(i)}));
    }
    EXPECT_EQ(replies[7].errorName, BusError::unknownMethod);
    EXPECT_FALSE(replies[8].succeeded());
}

TEST_F(BusTest, TheCallsOfAQuestionTakeOneTimeOutTogetherAndEachOtherGetsItsAnswer) {
    Service service;
    std::vector<BusCall> calls(6, callOf("Silent"));
    calls[3] = callOf("Echo");
    BusConnection question(bus);
    std::vector<BusReply> replies;
    const auto took = timeOf([&] { replies = question.callAll(calls); });
    EXPECT_GE(took, busTimeout * 9 / 10);
    EXPECT_LT(took, atMost(busTimeout));
    for (std::size_t i = 0; i < replies.size(); ++i) {
        EXPECT_EQ(replies[i].errorName, i == 3 ? "" : BusError::timedOut) << i;
    }
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(question.call(callOf("Silent")).succeeded()); }),
              atMost(milliseconds(0)))
        << "one deadline for all rounds of a question";
    EXPECT_THAT(daemon.told(), ::testing::IsEmpty()) << "it is the service that is silent";
}

TEST_F(BusTest, AServiceThatEndsInACallFailsIt) {
    {
        Service service;
        service.on("Die", [&service](sd_bus_message*) { service.die(); });
        BusConnection question(bus);
        const auto reply = question.call(callOf("Die"), Clock::now() + aMinute);
        EXPECT_EQ(reply.errorName, BusError::noReply);
        EXPECT_FALSE(question.hasEnded());
    }
    EXPECT_EQ(bus.call(callOf("Echo")).errorName, BusError::serviceUnknown);
}

TEST_F(BusTest, AStopEndsTheWaitAndWhatIsAskedLater) {
    Service service;
    auto waiting = std::async(std::launch::async, [this] {
        return BusConnection(bus).call(callOf("Silent"), Clock::now() + aMinute).errorName;
    });
    ASSERT_TRUE(service.wasCalled("Silent"));
    EXPECT_LT(timeOf([&] {
                  daemon.stopSignal.raise();
                  EXPECT_EQ(waiting.get(), BusError::disconnected);
                  EXPECT_FALSE(bus.call(callOf("Silent")).succeeded());
              }),
              atMost(milliseconds(50)));
}

TEST_F(BusTest, AFrozenBusCostsItsTimeOutAndNothingAfterAStop) {
    daemon.freeze();
    const auto descriptors = testing::descriptorCount();
    const auto took = timeOf([this] { EXPECT_FALSE(bus.call(callOf("Echo")).succeeded()); });
    EXPECT_GE(took, busTimeout * 9 / 10);
    EXPECT_LT(took, atMost(busTimeout));
    EXPECT_FALSE(bus.call(callOf("Echo")).succeeded());
    EXPECT_THAT(daemon.told(), ElementsAre(HasSubstr("accepts connections but does not answer")));
    auto waiting = std::async(std::launch::async, [this] {
        return BusConnection(bus).call(callOf("Echo"), Clock::now() + aMinute).errorName;
    });
    EXPECT_LT(timeOf([&] {
                  daemon.stopSignal.raise();
                  EXPECT_EQ(waiting.get(), BusError::disconnected);
              }),
              atMost(milliseconds(50)));
    EXPECT_EQ(testing::descriptorCount(), descriptors);
}

TEST_F(BusTest, ABusThatIsMissingOrRefusesCostsNothingAndIsToldOnceUntilItAnswersAgain) {
    const auto askOften = [this] {
        EXPECT_LT(timeOf([this] {
                      for (int i = 0; i < 100; ++i) {
                          EXPECT_EQ(bus.call(callOf("Echo")).errorName, BusError::disconnected);
                      }
                  }),
                  atMost(milliseconds(100)));
    };
    daemon.stop();
    askOften();
    daemon.start();
    EXPECT_EQ(bus.call(callOf("Echo")).errorName, BusError::serviceUnknown);
    daemon.start("ANONYMOUS");
    askOften();
    EXPECT_THAT(daemon.told(), ElementsAre(HasSubstr("cannot be reached"), HasSubstr("refuses")));
}

} // namespace
} // namespace morvellacinto::native
