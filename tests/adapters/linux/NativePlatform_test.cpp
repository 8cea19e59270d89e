#include "adapters/linux/NativeFixtures.h"

#include "support/Attack.h"
#include "support/FaultServer.h"
#include "support/ProcessCounts.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/DeveloperLog.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <future>
#include <iterator>
#include <latch>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {
std::function<void()> whileFlushing; // run once
} // namespace

// What the settings' database calls to flush: this comes before the C library's.
extern "C" __attribute__((visibility("default"))) int fdatasync(int descriptor) {
    if (whileFlushing) {
        std::exchange(whileFlushing, nullptr)();
    }
    return static_cast<int>(syscall(SYS_fdatasync, descriptor));
}

namespace morvellacinto::native {
namespace {

using testing::descriptorCount;
using testing::FaultServer;
using testing::threadCount;
using SteadyClock = std::chrono::steady_clock;

class NativePlatformTest : public ::testing::Test {
protected:
    std::shared_ptr<NativePlatform> make() const {
        return NativePlatform::create(
            {"com.example.test", directory_.path(), {}, nullptr, nullptr});
    }

    // Starts a request whose completion is `done`.
    static std::shared_ptr<platform::HttpTask> request(NativePlatform& platform, std::string url,
                                                       std::function<void()> done) {
        platform::HttpRequest request;
        request.url = std::move(url);
        auto task = platform.makeHttpSession({}, nullptr)
                        ->dataTask(std::move(request),
                                   [done = std::move(done)](const auto&...) { done(); });
        task->resume();
        return task;
    }

    // Uses all that has threads or descriptors of its own.
    static void warmUp(NativePlatform& platform, const FaultServer& server) {
        std::atomic<bool> answered = false;
        request(platform, server.url("/warm"), [&] { answered = true; });
        EXPECT_TRUE(pumpUntil(platform, [&] { return answered.load(); }));
        platform.standardUserDefaults().setObjectForKey(1, "warm");
        EXPECT_TRUE(platform.standardUserDefaults().synchronize());
    }

    TemporaryDirectory directory_;
};

TEST_F(NativePlatformTest, CreationStartsNoThreadAndOpensNothingButTheEventDescriptor) {
    const auto threads = threadCount();
    const auto descriptors = descriptorCount();
    auto platform = make();
    EXPECT_EQ(threadCount(), threads);
    EXPECT_EQ(descriptorCount(), descriptors + 1);
    EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
    platform.reset();
    EXPECT_EQ(descriptorCount(), descriptors);
}

TEST_F(NativePlatformTest, CreationWithoutAnyFolderForTheSettingsSaysSo) {
    unsetenv("HOME");
    setenv("XDG_DATA_HOME", "relative", 1);
    EXPECT_THROW((void)NativePlatform::create({}), std::invalid_argument);
    setenv("XDG_DATA_HOME", directory_.path().c_str(), 1);
    const auto platform = NativePlatform::create({});
    platform->standardUserDefaults().setObjectForKey(1, "key");
    EXPECT_TRUE(platform->standardUserDefaults().synchronize());
    EXPECT_TRUE(std::filesystem::is_directory(directory_.path() / "morvellacinto"));
}

TEST_F(NativePlatformTest, TheBasePayloadHasAllItsKeys) {
    platform::install(make());
    const Object payload = KRNetworkManager::basePayload();
    EXPECT_EQ(payload.size(), 19U);
    EXPECT_EQ(payload.at("bundle"), Value("com.example.test"));
    EXPECT_EQ(payload.at("advertId"), Value("00000000-0000-0000-0000-000000000000"));
    EXPECT_EQ(payload.at("advertIdEnabled"), Value(false));
    platform::shutdown();
}

TEST_F(NativePlatformTest, AnExceptionThatACompletionThrowsReachesDrain) {
    FaultServer server(nullptr, {});
    const auto platform = make();
    request(*platform, server.url("/"), [] { throw std::range_error("of the host"); });
    EXPECT_THROW((void)pumpUntil(*platform, [] { return false; }), std::range_error);
    platform->drain();
}

TEST_F(NativePlatformTest, ShutdownInAnyPhaseOfARequestIsQuickAndNoCompletionStartsAfterwards) {
    enum class Until { started, connected, answering };
    struct Phase {
        const char* name;
        Until until;
        std::string answer;
        const char* scheme = "http";
    };
    const Phase phases[] = {
        {"just started", Until::started, ""},
        {"connected", Until::connected, ""},
        {"in the TLS handshake", Until::connected, "", "https"},
        {"no answer yet", Until::answering, ""},
        {"half an answer", Until::answering, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{"},
        {"answered", Until::answering, testing::answer(200, "{}")},
    };
    const auto rounds = static_cast<std::size_t>(testing::attackRounds(12));
    SteadyClock::duration longest{};
    for (std::size_t round = 0; round < rounds; ++round) {
        const Phase& phase = phases[round % std::size(phases)];
        SCOPED_TRACE(phase.name);
        std::promise<void> reached;
        FaultServer server(nullptr,
                           {[&](FaultServer::Connection& connection) {
                                if (phase.until != Until::answering) {
                                    reached.set_value();
                                    connection.stall();
                                }
                            },
                            [&](FaultServer::Connection& connection, const FaultServer::Request&) {
                                connection.write(phase.answer);
                                reached.set_value();
                                connection.stall();
                            }});
        const auto platform = make();
        std::atomic<bool> down = false;
        std::atomic<bool> late = false;
        const auto captured = std::make_shared<int>();
        const std::string url = phase.scheme + server.url("/").substr(4);
        const auto task = request(*platform, url, [&, captured] { late = late || down; });
        if (phase.until != Until::started) {
            reached.get_future().wait();
        }
        const auto begin = SteadyClock::now();
        platform->shutdown();
        down = true;
        const auto took = SteadyClock::now() - begin;
        longest = std::max<SteadyClock::duration>(longest, took);
        EXPECT_LT(took, testing::shutdownLimit());
        EXPECT_EQ(captured.use_count(), 1) << "the completion is released";
        EXPECT_FALSE(late);
    }
    RecordProperty("microseconds", static_cast<int>(longest / std::chrono::microseconds(1)));
}

TEST_F(NativePlatformTest, MayBeShutDownOrLetGoInACompletionAndInABlockOfEitherQueue) {
    FaultServer server(nullptr, {});
    using Run = std::function<void(NativePlatform&, std::function<void()>)>;
    const std::pair<const char*, Run> places[] = {
        {"completion",
         [&](NativePlatform& platform, std::function<void()> block) {
             request(platform, server.url("/"), std::move(block));
         }},
        {"global block",
         [](NativePlatform& platform, std::function<void()> block) {
             platform.dispatch().asyncGlobal(std::move(block));
         }},
        {"main block",
         [](NativePlatform& platform, std::function<void()> block) {
             platform.dispatch().asyncMain(std::move(block));
         }},
    };
    for (const auto& [name, runIn] : places) {
        for (const bool letGo : {false, true}) {
            SCOPED_TRACE(name);
            auto platform = make();
            warmUp(*platform, server);
            NativePlatform& used = *platform;
            const auto over = std::make_shared<std::promise<void>>();
            std::promise<void> mayBegin;
            runIn(used, [&platform, over, letGo, begin = mayBegin.get_future().share()] {
                begin.wait();
                if (letGo) {
                    platform.reset();
                } else {
                    platform->shutdown();
                }
                over->set_value();
            });
            mayBegin.set_value();
            if (std::string_view(name) == "main block") {
                used.drain();
            }
            EXPECT_EQ(over->get_future().wait_for(generous), std::future_status::ready);
        }
    }
}

TEST_F(NativePlatformTest, ConcurrentShutdownsEachReturnWithNothingRunning) {
    FaultServer server(nullptr, {});
    for (int round = 0; round < testing::attackRounds(20); ++round) {
        const auto platform = make();
        std::atomic<bool> down = false;
        std::atomic<bool> late = false;
        for (int i = 0; i < 50; ++i) {
            platform->dispatch().asyncGlobal([&] { late = late || down; });
        }
        request(*platform, server.url("/"), [&] { late = late || down; });
        std::latch together(3);
        const auto end = [&] {
            together.arrive_and_wait();
            platform->shutdown();
            down = true;
        };
        std::thread first(end);
        std::thread second(end);
        end();
        first.join();
        second.join();
        EXPECT_FALSE(late);
    }
}

TEST_F(NativePlatformTest, AfterAShutdownOnAWorkerTheHostsOwnStillWaitsForThatWorker) {
    const auto platform = make();
    platform::install(platform);
    std::promise<void> isDown;
    std::atomic<bool> returned = false;
    platform->dispatch().asyncGlobal([&] {
        platform::shutdown();
        isDown.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        returned = true;
    });
    isDown.get_future().wait();
    platform::shutdown();
    EXPECT_TRUE(returned);
}

TEST_F(NativePlatformTest, ShutdownWaitsForHostCodeOnAWorkerButNotToCancelTransfers) {
    std::promise<void> requested;
    FaultServer server(nullptr,
                       {[](FaultServer::Connection&) {},
                        [&](FaultServer::Connection& connection, const FaultServer::Request&) {
                            requested.set_value();
                            connection.stall();
                        }});
    const auto platform = make();
    std::promise<void> running;
    std::promise<void> mayReturn;
    std::atomic<bool> returned = false;
    platform->dispatch().asyncGlobal([&] {
        running.set_value();
        mayReturn.get_future().wait();
        returned = true;
    });
    const auto captured = std::make_shared<int>();
    request(*platform, server.url("/"), [captured] {});
    running.get_future().wait();
    requested.get_future().wait();
    std::thread ending([&] {
        platform->shutdown();
        EXPECT_TRUE(returned);
    });
    const auto deadline = SteadyClock::now() + generous;
    while (captured.use_count() > 1 && SteadyClock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_FALSE(returned);
    mayReturn.set_value();
    ending.join();
}

TEST_F(NativePlatformTest, ShutdownWaitsForAFlushInProgress) {
    for (const bool onAWorker : {false, true}) {
        const auto platform = make();
        platform::UserDefaults& settings = platform->standardUserDefaults();
        ASSERT_NE(settings.objectForKey("key"), Value(onAWorker));
        settings.setObjectForKey(onAWorker, "key");
        std::promise<void> flushing;
        whileFlushing = [&] {
            flushing.set_value();
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        };
        std::thread flusher([&] { EXPECT_TRUE(settings.synchronize()); });
        flushing.get_future().wait();
        if (onAWorker) {
            platform->dispatch().asyncGlobal([&] { platform->shutdown(); });
        }
        platform->shutdown();
        EXPECT_EQ(settings.objectForKey("key"), std::nullopt);
        EXPECT_EQ(make()->standardUserDefaults().objectForKey("key"), Value(onAWorker));
        flusher.join();
    }
}

TEST_F(NativePlatformTest, AHostsLogFunctionThatThrowsHarmsNobody) {
    std::vector<std::string> lines;
    const auto platform = NativePlatform::create({std::nullopt,
                                                  directory_.path(),
                                                  {},
                                                  [&](std::string_view text) {
                                                      lines.emplace_back(text);
                                                      throw std::runtime_error("log");
                                                  },
                                                  nullptr});
    platform->developerLog().log("tags failed");
    EXPECT_EQ(lines, std::vector<std::string>{"tags failed"});
}

TEST_F(NativePlatformTest, TheLogOnStandardErrorIsOneLineAndSurvivesItsReader) {
    const int before = dup(STDERR_FILENO);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[1], STDERR_FILENO);
    const auto platform = make();
    platform->developerLog().log("tags failed");
    char text[64];
    const auto length = read(ends[0], text, sizeof text);
    close(ends[0]);
    platform->developerLog().log("nobody reads this");
    dup2(before, STDERR_FILENO);
    close(before);
    close(ends[1]);
    ASSERT_GT(length, 0);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(length)), "tags failed\n");
}

TEST_F(NativePlatformTest, AForkedChildMayDropThePlatformAndExitAndTheParentGoesOn) {
    FaultServer server(nullptr, {});
    auto platform = make();
    warmUp(*platform, server);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        alarm(20);
        platform.reset();
        _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    warmUp(*platform, server);
}

using NativePlatformDeathTest = NativePlatformTest;

TEST_F(NativePlatformDeathTest, ExitWithoutShutdownIsSafeWithWorkAndARequestUnderWay) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exitInTheMiddle = [this] {
        alarm(30);
        FaultServer server(nullptr, {[](FaultServer::Connection&) {},
                                     [](FaultServer::Connection& connection,
                                        const FaultServer::Request&) { connection.stall(); }});
        platform::install(make());
        auto& platform = dynamic_cast<NativePlatform&>(*platform::current());
        request(platform, server.url("/"), [] {});
        EXPECT_TRUE(server.waitForConnections(1));
        std::latch busy(1);
        platform.dispatch().asyncGlobal([&] {
            busy.count_down();
            for (;;) {
                pause();
            }
        });
        platform.dispatch().asyncMain([] {});
        platform.standardUserDefaults().setObjectForKey(1, "pending");
        busy.wait();
        std::exit(7);
    };
    EXPECT_EXIT(exitInTheMiddle(), ::testing::ExitedWithCode(7), "");
}

} // namespace
} // namespace morvellacinto::native
