// SPDX-License-Identifier: MIT
// Attacks the life of a platform: `lifecycle exit|shutdown|memory ROUNDS`.

#include "support/FaultServer.h"
#include "support/TemporaryDirectory.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/UserDefaults.h"
#include <morvellacinto/native/NativePlatform.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <poll.h>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace morvellacinto;
using native::NativePlatform;
using testing::FaultServer;

namespace {

// The allocation that fails, counted down by all threads; below zero none does.
std::atomic<long> allocationsLeft = -1;

void* allocate(std::size_t size) noexcept {
    if (allocationsLeft >= 0 && allocationsLeft-- == 0) {
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

} // namespace

void* operator new(std::size_t size) {
    if (void* memory = allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

// More than one round makes.
constexpr int allocationsAtMost = 2000;
// A round's exit status when there was less to attack than it asked for.
constexpr int nothingLeft = 2;

using Round = std::function<int(int round)>;

std::shared_ptr<NativePlatform> make(const std::filesystem::path& directory) {
    return NativePlatform::create({.bundleIdentifier = "com.example.attack",
                                   .dataDirectory = directory,
                                   .developerLog = [](std::string_view) {},
                                   .diagnostics = [](std::string_view) {}});
}

void moveServiceTo(const FaultServer& server, const std::filesystem::path& directory) {
    const auto platform = make(directory);
    platform->standardUserDefaults().setObjectForKey(server.url("/v5"), "se.kovra.v5.KRServiceURL");
    if (!platform->standardUserDefaults().synchronize()) {
        throw std::runtime_error("the base URL could not be stored");
    }
}

// Polls for so long, or until `done`.
void drainFor(NativePlatform& platform, std::chrono::microseconds time,
              const std::atomic<bool>* done = nullptr) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end && (done == nullptr || !*done)) {
        pollfd wanted{platform.descriptor(), POLLIN, 0};
        poll(&wanted, 1, 0);
        try {
            platform.drain();
        } catch (const std::exception&) { // memory that ran out on a worker, for example
        }
    }
}

// Returns from main in the middle of an operation, with every service in use.
int exitInTheMiddle(const std::filesystem::path& directory, int round) {
    platform::install(make(directory));
    auto& platform = dynamic_cast<NativePlatform&>(*platform::current());
    KRAudienceManager manager(Uuid::parse("6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42"));
    manager.kovraTagsWithCompletion([](const auto&, const auto&) {});
    drainFor(platform,
             std::chrono::microseconds(std::minstd_rand(static_cast<unsigned>(round))() % 1500));
    std::exit(0);
}

// Shuts down on one thread while others post, request and drain: nothing starts afterwards.
int shutDownInTheMiddle(const FaultServer& server, const std::filesystem::path& directory) {
    const auto platform = make(directory);
    std::atomic<bool> isDown = false;
    std::atomic<int> late = 0;
    const auto block = [&] { late += isDown ? 1 : 0; };
    std::thread poster([&] {
        for (int i = 0; i < 300; ++i) {
            platform->dispatch().asyncMain(block);
            platform->dispatch().asyncGlobal(block);
        }
    });
    platform::HttpRequest request;
    request.url = server.url("/");
    platform->makeHttpSession({}, nullptr)
        ->dataTask(request, [&](const auto&...) { block(); })
        ->resume();
    std::thread ending([&] {
        platform->shutdown();
        isDown = true;
    });
    drainFor(*platform, std::chrono::milliseconds(50), &isDown);
    ending.join();
    poster.join();
    return late == 0 ? 0 : 1;
}

// Does what a host does while one allocation fails, wherever it is.
int runOutOfMemory(const std::filesystem::path& directory, long point) {
    platform::install(make(directory));
    auto& platform = dynamic_cast<NativePlatform&>(*platform::current());
    std::atomic<bool> done = false;
    allocationsLeft = point;
    try {
        platform.standardUserDefaults().setObjectForKey(point, "point");
        static_cast<void>(platform.standardUserDefaults().synchronize());
        KRAudienceManager manager(std::nullopt);
        Object payload = KRNetworkManager::basePayload();
        manager.collect(
            payload, [&](const auto&, const auto&) { done = true; }, true);
    } catch (const std::bad_alloc&) {
        done = true;
    } catch (const std::system_error&) { // a thread that could not be made
        done = true;
    }
    drainFor(platform, std::chrono::milliseconds(200), &done);
    const bool reached = allocationsLeft < 0;
    platform::shutdown();
    return reached ? 0 : nothingLeft;
}

// Each round in a process of its own. The number of those that ended otherwise than with 0.
int inChildren(int rounds, const Round& body) {
    int failures = 0;
    int round = 0;
    for (; round < rounds; ++round) {
        std::fflush(stdout); // or the child prints it again
        const pid_t child = fork();
        if (child == 0) {
            alarm(30);
            std::exit(body(round));
        }
        int status = -1;
        waitpid(child, &status, 0);
        if (WIFEXITED(status) && WEXITSTATUS(status) == nothingLeft) {
            break;
        }
        if (status != 0) {
            ++failures;
            std::printf("round %d: %s %d\n", round, WIFSIGNALED(status) ? "signal" : "exit",
                        WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
        }
    }
    std::printf("%d rounds, %d failed\n", round, failures);
    return failures;
}

} // namespace

int main(int, char** arguments) {
    const std::string what = arguments[1];
    const int rounds = std::atoi(arguments[2]);
    const testing::TemporaryDirectory directory;
    FaultServer server(nullptr, {});
    moveServiceTo(server, directory.path());
    int failures = 0;
    if (what == "exit") {
        failures =
            inChildren(rounds, [&](int round) { return exitInTheMiddle(directory.path(), round); });
    } else if (what == "shutdown") {
        failures =
            inChildren(rounds, [&](int) { return shutDownInTheMiddle(server, directory.path()); });
    } else {
        const int stride = std::max(1, allocationsAtMost / rounds);
        failures = inChildren(rounds, [&](int round) {
            return runOutOfMemory(directory.path(), long(round) * stride);
        });
    }
    return failures == 0 ? 0 : 1;
}
