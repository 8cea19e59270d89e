#include "MockService.h"
#include "PrivateBus.h"

#include "bus/Bus.h"
#include "bus/BusValues.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <mutex>
#include <set>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace morvellacinto::native {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* serviceName = "com.example.Service";
// Far below the time-outs of twenty calls, far above what they take on a busy machine.
constexpr milliseconds atOnce(1000);

BusCall callOf(const std::string& member) {
    return {serviceName, "/a", "com.example.A", member, {}};
}

class Sentences {
public:
    [[nodiscard]] Diagnostics sink() {
        return [this](std::string_view sentence) {
            const std::lock_guard lock(mutex_);
            all_.emplace_back(sentence);
        };
    }
    [[nodiscard]] std::vector<std::string> all() {
        const std::lock_guard lock(mutex_);
        return all_;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> all_;
};

// How long `act` takes.
template <class Act>
milliseconds timeOf(Act act) {
    const auto before = Clock::now();
    act();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - before);
}

class BusTest : public ::testing::Test {
protected:
    // Calls until there is an answer, for what takes its time to come back.
    [[nodiscard]] bool answersInTheEnd(const BusCall& call) {
        const auto limit = Clock::now() + std::chrono::seconds(20);
        while (Clock::now() < limit) {
            if (bus.call(call).succeeded()) {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    Sentences sentences;
    PrivateBus daemon;
    Bus bus{sentences.sink()};
};

TEST_F(BusTest, DecodesWhateverAMessageHolds) {
    MockService service(serviceName);
    service.onCall("Everything", [](sd_bus_message* call) {
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

TEST_F(BusTest, ManyThreadsGetTheirOwnAnswersAndErrors) {
    MockService service(serviceName);
    service.onCall("Echo", [](sd_bus_message* call) {
        const char* text = nullptr;
        sd_bus_message_read(call, "s", &text);
        reply(call, [&](sd_bus_message* message) { sd_bus_message_append(message, "s", text); });
    });
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 50; ++i) {
                const std::string text = std::to_string(thread * 1000 + i);
                BusCall call = callOf("Echo");
                call.timeout = std::chrono::seconds(20);
                call.arguments = [text](sd_bus_message* message) {
                    return sd_bus_message_append_basic(message, 's', text.c_str());
                };
                const BusReply answer = bus.call(call);
                wrong += answer.body == Array::of({text}) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(bus.call(callOf("Nothing")).errorName, BusError::unknownMethod);
    BusCall malformed = callOf("Echo");
    malformed.path = "no path";
    EXPECT_FALSE(bus.call(malformed).succeeded());
}

TEST_F(BusTest, ASilentServiceCostsOneTimeOutAndIsAskedAgainLater) {
    MockService service(serviceName);
    service.onCall("Silent", [](sd_bus_message*) {});
    service.onCall("Ping", [](sd_bus_message* call) { reply(call, {}); });
    MockService other("com.example.Other");
    other.onCall("Ping", [](sd_bus_message* call) { reply(call, {}); });

    const auto first =
        timeOf([&] { EXPECT_EQ(bus.call(callOf("Silent")).errorName, BusError::noReply); });
    EXPECT_GE(first, busCallTimeout);
    const auto later = timeOf([&] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(bus.call(callOf("Ping")).errorName, BusError::noReply);
        }
    });
    EXPECT_LT(later, atOnce);
    EXPECT_EQ(service.callsOf("Ping"), 0);
    BusCall elsewhere = callOf("Ping");
    elsewhere.destination = "com.example.Other";
    EXPECT_TRUE(bus.call(elsewhere).succeeded());
    EXPECT_TRUE(answersInTheEnd(callOf("Ping")));
    EXPECT_THAT(sentences.all(), ::testing::IsEmpty());
}

TEST_F(BusTest, CallsMadeTogetherTakeOneTimeOutTogether) {
    MockService service(serviceName);
    service.onCall("Silent", [](sd_bus_message*) {});
    service.onCall("Ping", [](sd_bus_message* call) { reply(call, {}); });
    std::vector<BusCall> calls(6, callOf("Silent"));
    calls[3] = callOf("Ping");
    std::vector<BusReply> replies;
    const auto took = timeOf([&] { replies = bus.callAll(calls); });
    ASSERT_EQ(replies.size(), calls.size());
    EXPECT_TRUE(replies[3].succeeded());
    EXPECT_EQ(std::count_if(replies.begin(), replies.end(),
                            [](const BusReply& reply) { return reply.succeeded(); }),
              1);
    EXPECT_LT(took, 3 * busCallTimeout);
}

TEST_F(BusTest, AServiceThatDiesInACallFailsItAndItsSuccessorIsAskedAtOnce) {
    {
        MockService service(serviceName);
        service.onCall("Die", [&service](sd_bus_message*) { service.die(); });
        BusCall call = callOf("Die");
        call.timeout = std::chrono::seconds(20);
        const auto took = timeOf([&] { EXPECT_FALSE(bus.call(call).succeeded()); });
        EXPECT_LT(took, std::chrono::seconds(10));
    }
    EXPECT_EQ(bus.call(callOf("Ping")).errorName, BusError::serviceUnknown);
    MockService successor(serviceName);
    successor.onCall("Ping", [](sd_bus_message* call) { reply(call, {}); });
    EXPECT_TRUE(bus.call(callOf("Ping")).succeeded());
}

TEST_F(BusTest, ALostBusIsToldOnceAndUsedAgainWhenItIsBack) {
    {
        MockService service(serviceName);
        service.onCall("Ping", [](sd_bus_message* call) { reply(call, {}); });
        EXPECT_TRUE(bus.call(callOf("Ping")).succeeded());
    }
    daemon.stop();
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(bus.call(callOf("Ping")).succeeded());
    }
    EXPECT_THAT(sentences.all(), ::testing::ElementsAre(::testing::HasSubstr("lost")));
    daemon.start();
    MockService service(serviceName);
    service.onCall("Ping", [](sd_bus_message* call) { reply(call, {}); });
    EXPECT_TRUE(answersInTheEnd(callOf("Ping")));
}

TEST_F(BusTest, AFrozenBusHangsNobody) {
    MockService service(serviceName);
    service.onCall("Ping", [](sd_bus_message* call) { reply(call, {}); });
    daemon.daemon().signal(SIGSTOP);
    const auto took = timeOf([&] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_FALSE(bus.call(callOf("Ping")).succeeded());
        }
    });
    EXPECT_LT(took, 4 * busCallTimeout);
    EXPECT_THAT(sentences.all(), ::testing::ElementsAre(::testing::HasSubstr("does not answer")));
    daemon.daemon().signal(SIGCONT);
    EXPECT_TRUE(answersInTheEnd(callOf("Ping")));
}

TEST_F(BusTest, ShutdownWakesThoseWhoWaitAndRefusesWhatComesLater) {
    MockService service(serviceName);
    service.onCall("Silent", [](sd_bus_message*) {});
    auto waiting = std::async(std::launch::async, [this] {
        BusCall call = callOf("Silent");
        call.timeout = std::chrono::seconds(60);
        return bus.call(call).errorName;
    });
    ASSERT_TRUE(service.wasCalled("Silent"));
    EXPECT_LT(timeOf([this] { bus.shutdown(); }), atOnce);
    EXPECT_EQ(waiting.get(), BusError::disconnected);
    EXPECT_LT(timeOf([this] { EXPECT_FALSE(bus.call(callOf("Silent")).succeeded()); }), atOnce);
}

TEST_F(BusTest, AnIdleThreadEndsWithItsConnectionAndComesBackWhenNeeded) {
    MockService service(serviceName);
    std::mutex mutex;
    std::set<std::string> callers;
    service.onCall("Ping", [&](sd_bus_message* call) {
        const std::lock_guard lock(mutex);
        callers.insert(sd_bus_message_get_sender(call));
        reply(call, {});
    });
    const auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    const auto before = threads();
    Bus shortLived(sentences.sink(), milliseconds(20));
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(shortLived.call(callOf("Ping")).succeeded());
        const auto limit = Clock::now() + std::chrono::seconds(20);
        while (threads() > before && Clock::now() < limit) {
            std::this_thread::yield();
        }
        EXPECT_EQ(threads(), before);
    }
    const std::lock_guard lock(mutex);
    EXPECT_THAT(callers, ::testing::SizeIs(2)) << "a connection each";
}

TEST_F(BusTest, ItsThreadTakesNoSignalsAndAForkedChildCanExit) {
    MockService service(serviceName);
    service.onCall("Ping", [](sd_bus_message* call) { reply(call, {}); });
    ASSERT_TRUE(bus.call(callOf("Ping")).succeeded());
    std::promise<sigset_t> mask;
    bus.post([&mask](BusConnection&) {
        sigset_t own;
        pthread_sigmask(SIG_SETMASK, nullptr, &own);
        mask.set_value(own);
    });
    const sigset_t own = mask.get_future().get();
    for (const int signal : {SIGPIPE, SIGTERM, SIGINT, SIGCHLD}) {
        EXPECT_EQ(sigismember(&own, signal), 1) << signal;
    }
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        const bool isRefused = !bus.call(callOf("Ping")).succeeded();
        bus.shutdown();
        _exit(isRefused ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(bus.call(callOf("Ping")).succeeded()) << "the parent's connection is untouched";
}

TEST(BusWithoutDaemon, EverythingFailsAtOnceWithOneDiagnostic) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/socket", 1);
    Sentences sentences;
    Bus bus(sentences.sink());
    const auto took = timeOf([&] {
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(bus.call(callOf("Ping")).errorName, BusError::disconnected);
        }
    });
    EXPECT_LT(took, std::chrono::seconds(5));
    EXPECT_THAT(sentences.all(), ::testing::ElementsAre(::testing::HasSubstr("No such file")));
}

// A socket where the bus is expected, on which nobody speaks.
class MuteSocket {
public:
    MuteSocket() {
        const std::string path = (folder_.path() / "socket").string();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 4), 0);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
    }
    MuteSocket(const MuteSocket&) = delete;
    MuteSocket& operator=(const MuteSocket&) = delete;
    ~MuteSocket() { close(listener_); }

    [[nodiscard]] int listener() const { return listener_; }

private:
    const TemporaryFolder folder_;
    const int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST(BusWithoutDaemon, ABusThatClosesEachConnectionIsToldOnceAndNotTriedEachTime) {
    const MuteSocket bus;
    std::atomic<int> connections = 0;
    std::thread closing([&] {
        for (int taken = -1; (taken = accept(bus.listener(), nullptr, nullptr)) >= 0;) {
            ++connections;
            char first = 0;
            std::ignore = read(taken, &first, 1);
            close(taken);
        }
    });
    Sentences sentences;
    {
        Bus refused(sentences.sink());
        for (int i = 0; i < 20; ++i) {
            EXPECT_FALSE(refused.call(callOf("Ping")).succeeded());
        }
    }
    EXPECT_THAT(sentences.all(), ::testing::ElementsAre(::testing::HasSubstr("refuses")));
    EXPECT_LT(connections, 20);
    shutdown(bus.listener(), SHUT_RDWR);
    closing.join();
}

TEST(BusWithoutDaemon, ABusThatNeverAnswersCostsOneTimeOut) {
    const MuteSocket mute;
    Sentences sentences;
    {
        Bus bus(sentences.sink());
        const auto took = timeOf([&] {
            for (const char* name : {"com.example.A", "com.example.B", "com.example.C"}) {
                BusCall call = callOf("Ping");
                call.destination = name;
                EXPECT_FALSE(bus.call(call).succeeded());
            }
        });
        EXPECT_LT(took, 2 * busCallTimeout);
    }
    EXPECT_THAT(sentences.all(), ::testing::SizeIs(1));
}

} // namespace
} // namespace morvellacinto::native
