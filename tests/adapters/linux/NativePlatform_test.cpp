// SPDX-License-Identifier: MIT
#include "adapters/linux/NativeFixtures.h"

#include "support/FaultServer.h"
#include "support/ShutdownLimit.h"

#include "morvellacinto/platform/DeveloperLog.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <gtest/gtest.h>

#include <future>
#include <sys/file.h>

namespace morvellacinto::native {

using testing::FaultServer;
using SteadyClock = std::chrono::steady_clock;

const FaultServer::Script silent{
    .onRequest = [](FaultServer::Connection& connection, const auto&) { connection.stall(); }};

struct NativePlatformTest : ::testing::Test {
    std::shared_ptr<NativePlatform> make() const {
        return NativePlatform::create(
            {"com.example.test", directory_.path(), {}, nullptr, nullptr});
    }

    static void request(NativePlatform& platform, const std::string& url,
                        const std::function<void()>& done) {
        platform.makeHttpSession({}, nullptr)
            ->dataTask({"GET", url, {}, {}}, [done](const auto&...) { done(); })
            ->resume();
    }

    static void warmUp(NativePlatform& platform, const FaultServer& server) {
        std::atomic<bool> answered = false;
        request(platform, server.url("/warm"), [&] { answered = true; });
        EXPECT_TRUE(pumpUntil(platform, [&] { return answered.load(); }));
        platform.standardUserDefaults().setObjectForKey(1, "warm");
        EXPECT_TRUE(platform.standardUserDefaults().synchronize());
    }

    TemporaryDirectory directory_;
};

TEST_F(NativePlatformTest, CreationWithoutAnyFolderForTheSettingsSaysSo) {
    unsetenv("HOME");
    setenv("XDG_DATA_HOME", "relative", 1);
    EXPECT_THROW((void)NativePlatform::create({}), std::invalid_argument);
    setenv("XDG_DATA_HOME", (directory_.path() / "missing/..").c_str(), 1);
    const auto platform = NativePlatform::create({});
    platform->standardUserDefaults().setObjectForKey(1, "key");
    EXPECT_TRUE(platform->standardUserDefaults().synchronize());
    EXPECT_TRUE(std::filesystem::is_directory(directory_.path() / "morvellacinto"));
}

TEST_F(NativePlatformTest, AllThreadsBlockAllSignalsAndTheHostsThreadKeepsItsMask) {
    FaultServer server(nullptr, {});
    const auto platform = make();
    warmUp(*platform, server); // a thread for transfers, one for the completion
    int ours = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "status");
        const std::string status{std::istreambuf_iterator<char>(file), {}};
        const std::string mask = status.substr(status.find("SigBlk:") + 8, 16);
        if (status.starts_with("Name:\tmorvellacinto\n")) {
            // All but those that cannot be blocked: 9, 19, and the two that the C library keeps.
            EXPECT_EQ(mask, "fffffffe7ffbfeff");
            ++ours;
        } else if (task.path().filename() == std::to_string(getpid())) {
            EXPECT_EQ(mask, "0000000000000000");
        }
    }
    EXPECT_GE(ours, 2);
}

TEST_F(NativePlatformTest, EachShutdownWaitsForHostCodeOnAWorkerAndForNothingElse) {
    FaultServer server(nullptr, silent);
    const auto platform = make();
    const auto captured = std::make_shared<int>();
    request(*platform, server.url("/"), [captured] {});
    ASSERT_TRUE(server.waitForRequests(1));
    platform::UserDefaults& settings = platform->standardUserDefaults();
    settings.setObjectForKey(1, "key");
    const int folder = open(directory_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(folder, LOCK_EX), 0);
    std::promise<void> flushing;
    platform->dispatch().asyncGlobal([&] {
        flushing.set_value();
        EXPECT_FALSE(settings.synchronize()) << "the lock is ours";
    });
    flushing.get_future().wait();
    std::promise<void> isDown;
    std::promise<void> mayReturn;
    std::atomic<bool> hasReturned = false;
    const auto begin = SteadyClock::now();
    platform->dispatch().asyncGlobal([&] {
        platform->shutdown();
        isDown.set_value();
        mayReturn.get_future().wait();
        hasReturned = true;
    });
    isDown.get_future().wait();
    EXPECT_LT(SteadyClock::now() - begin, testing::shutdownLimit);
    EXPECT_EQ(captured.use_count(), 1) << "the completion is released";
    close(folder);
    const auto end = [&] {
        platform->shutdown();
        EXPECT_TRUE(hasReturned);
    };
    std::thread first(end);
    std::thread second(end);
    mayReturn.set_value();
    first.join();
    second.join();
}

TEST_F(NativePlatformTest, AShutdownOnAnotherThreadEndsARunOnceItsBlockHasReturned) {
    const auto platform = make();
    std::promise<void> isDown;
    std::thread other;
    platform->dispatch().asyncMain([&] {
        other = std::thread([&] {
            platform->shutdown();
            isDown.set_value();
        });
        EXPECT_EQ(isDown.get_future().wait_for(std::chrono::milliseconds(20)),
                  std::future_status::timeout);
    });
    platform->run();
    other.join();
}

TEST_F(NativePlatformTest, MayBeLetGoInACompletionAndInABlockOfEitherQueue) {
    FaultServer server(nullptr, {});
    for (const std::string place : {"completion", "global block", "main block"}) {
        SCOPED_TRACE(place);
        auto platform = make();
        warmUp(*platform, server);
        NativePlatform& used = *platform;
        std::promise<void> mayBegin;
        const auto over = std::make_shared<std::promise<void>>();
        const auto block = [&platform, over, begin = mayBegin.get_future().share()] {
            begin.wait();
            platform.reset();
            over->set_value();
        };
        if (place == "completion") {
            request(used, server.url("/"), block);
        } else if (place == "global block") {
            used.dispatch().asyncGlobal(block);
        } else {
            used.dispatch().asyncMain(block);
        }
        mayBegin.set_value();
        if (place == "main block") {
            used.drain();
        }
        EXPECT_EQ(over->get_future().wait_for(generous), std::future_status::ready);
    }
}

TEST_F(NativePlatformTest, TheHostsFunctionsAreUsedAndALogMayLetGoOfThePlatformAndThrow) {
    std::shared_ptr<NativePlatform> platform;
    auto captured = std::make_shared<int>();
    const std::weak_ptr<int> living = captured;
    std::vector<std::string> told;
    NativeOptions options{.dataDirectory = directory_.path()};
    options.developerLog = [&, held = std::move(captured)](std::string_view line) {
        platform.reset();
        told.push_back(living.expired() ? "captures are gone" : std::string(line));
        throw std::runtime_error("of the host");
    };
    options.diagnostics = [&](std::string_view sentence) { told.emplace_back(sentence); };
    platform = NativePlatform::create(std::exchange(options, {}));
    const platform::RequestNotMade record{7};
    platform->diagnostics()->tell(record);
    platform->developerLog().log("tags failed");
    EXPECT_EQ(told, (std::vector<std::string>{sentenceOf(record), "tags failed"}));
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

TEST_F(NativePlatformTest, AForkedChildMayShutDownDropThePlatformAndExitAndTheParentGoesOn) {
    FaultServer server(nullptr, {});
    auto platform = make();
    warmUp(*platform, server);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        alarm(20);
        platform->shutdown();
        platform.reset();
#if defined(__SANITIZE_ADDRESS__)
        _exit(0); // what the child leaves as it is would count as leaks
#else
        std::exit(0);
#endif
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    warmUp(*platform, server);
}

} // namespace morvellacinto::native
