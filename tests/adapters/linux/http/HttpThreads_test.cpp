#include "HttpFixture.h"

#include "support/Attack.h"

#include <csignal>
#include <cstdlib>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <latch>
#include <thread>

namespace morvellacinto::native {

namespace {

class HttpThreadsTest : public HttpTest {
protected:
    // How long a thousand requests took, each of which must get its own answer.
    std::chrono::milliseconds sendAThousand(const std::string& url) {
        HttpTransport& shared = transport();
        constexpr int threads = 50;
        constexpr int requestsEach = 20;
        std::latch all(threads * requestsEach);
        std::atomic<int> right = 0;
        std::latch begin(threads);
        std::vector<std::thread> senders;
        const auto start = std::chrono::steady_clock::now();
        for (int thread = 0; thread < threads; ++thread) {
            senders.emplace_back([&, thread] {
                begin.arrive_and_wait();
                for (int i = 0; i < requestsEach; ++i) {
                    const std::string body = std::to_string(thread) + "/" + std::to_string(i);
                    const auto session = shared.makeSession(configuration(60s), nullptr);
                    session
                        ->dataTask({"POST", url, {}, body},
                                   [&, body](auto data, auto, auto) {
                                       right += data == body ? 1 : 0;
                                       all.count_down();
                                   })
                        ->resume();
                    session->finishTasksAndInvalidate();
                }
            });
        }
        for (std::thread& sender : senders) {
            sender.join();
        }
        all.wait();
        EXPECT_EQ(right, threads * requestsEach);
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
    }
};

TEST_F(HttpThreadsTest, AThousandRequestsFromFiftyThreadsShareConnectionsToAFastServer) {
    FaultServer server(tls(), {.onRequest = [](Connection& connection, const Request& request) {
                           connection.write(answer(200, request.body));
                       }});
    const auto took = sendAThousand(server.url("/"));
    RecordProperty("milliseconds", static_cast<int>(took.count()));
    RecordProperty("connections", server.connections());
    if (took < 1s) { // a slow machine looks like a slow server
        EXPECT_LT(server.connections(), 200);
    }
}

TEST_F(HttpThreadsTest, AThousandRequestsWaitForASlowServerAloneAlsoOnKeptConnections) {
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = descriptors.rlim_max;
    setrlimit(RLIMIT_NOFILE, &descriptors);
    FaultServer server(nullptr, {.onRequest = [](Connection& connection, const Request& request) {
                           connection.pause(1s);
                           connection.write(answer(200, request.body));
                       }});
    for (const char* burst : {"first", "second"}) {
        const auto took = sendAThousand(server.url("/"));
        RecordProperty(burst, static_cast<int>(took.count()));
        EXPECT_LT(took, 30s) << burst;
    }
}

TEST_F(HttpThreadsTest, CompletionsRunInOrderOnWorkersAndABlockedOneDelaysNoOtherSession) {
    FaultServer server(nullptr, {});
    std::promise<void> release;
    const std::shared_future<void> released(release.get_future());
    std::promise<std::thread::id> blocked;
    std::promise<void> second;
    const auto session = transport().makeSession(configuration(), nullptr);
    session
        ->dataTask({"GET", server.url("/"), {}, {}},
                   [&](auto, auto, auto) {
                       blocked.set_value(std::this_thread::get_id());
                       released.wait();
                   })
        ->resume();
    EXPECT_NE(blocked.get_future().get(), std::this_thread::get_id());
    session
        ->dataTask({"GET", server.url("/"), {}, {}}, [&](auto, auto, auto) { second.set_value(); })
        ->resume();
    EXPECT_EQ(result(get(server.url("/"))).data, "{}");

    std::future<void> after = second.get_future();
    EXPECT_TRUE(server.waitForRequests(3));
    EXPECT_EQ(after.wait_for(50ms), std::future_status::timeout); // its session's queue is taken
    release.set_value();
    EXPECT_EQ(after.wait_for(30s), std::future_status::ready);
}

TEST_F(HttpThreadsTest, AnExceptionOfACompletionReachesThePoolsHandlerAndHarmsNothing) {
    FaultServer server(nullptr, {});
    const auto session = transport().makeSession(configuration(), nullptr);
    session
        ->dataTask({"GET", server.url("/"), {}, {}},
                   [](auto, auto, auto) { throw std::runtime_error("by the host"); })
        ->resume();
    EXPECT_THROW(std::rethrow_exception(escaped.get_future().get()), std::runtime_error);
    EXPECT_EQ(result(get(server.url("/"))).data, "{}");
}

TEST_F(HttpThreadsTest, ACompletionMayShutTheTransportDown) {
    FaultServer server(nullptr, {});
    std::promise<void> done;
    const auto session = transport().makeSession(configuration(), nullptr);
    session
        ->dataTask({"GET", server.url("/"), {}, {}},
                   [&](auto, auto, auto) {
                       transport().shutdown();
                       done.set_value();
                   })
        ->resume();
    EXPECT_EQ(done.get_future().wait_for(30s), std::future_status::ready);
}

TEST_F(HttpThreadsTest, SignalsAreLeftToTheHostsThreads) {
    static std::atomic<int> taken;
    std::signal(SIGUSR1, [](int) { ++taken; });
    FaultServer server(
        tls(), {.onRequest = [](Connection& connection, const Request&) { connection.reset(); }});
    // SIGPIPE at its default would end this process.
    const Ending ending = result(send({"POST", server.url("/"), {}, std::string(8 << 20, 'x')}));
    EXPECT_EQ(ending.code(), HttpErrorCode::connectionLost);

    // Blocked on this thread too, a signal waits unless one of the adapter's threads takes it.
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &one, nullptr);
    kill(getpid(), SIGUSR1);
    get(server.url("/")).wait();
    const timespec patience{30, 0};
    EXPECT_EQ(sigtimedwait(&one, nullptr, &patience), SIGUSR1);
    EXPECT_EQ(taken, 0);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
}

TEST_F(HttpThreadsTest, AForkedChildThatDoesNotUseTheLibraryEndsInPeaceAndHarmsNoConnection) {
    FaultServer server(tls(), {});
    auto mine = std::make_unique<HttpTransport>(options, pool);
    const auto upload = [&] {
        std::promise<std::optional<KRError>> done;
        const auto session = mine->makeSession(configuration(), nullptr);
        session
            ->dataTask({"POST", server.url("/"), {}, "{}"},
                       [&](auto, auto, auto error) { done.set_value(error); })
            ->resume();
        return done.get_future().get();
    };
    EXPECT_FALSE(upload());
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        mine.reset();
#if defined(__SANITIZE_ADDRESS__) // its search for leaks does not see the stacks left behind
        _exit(0);
#endif
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(upload());
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(HttpThreadsTest, AProcessMayExitWhileHandshakesAreUnderWay) {
    // The server has a process of its own: its threads would not survive their process's exit.
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t serving = fork();
    if (serving == 0) {
        FaultServer server(tls(), {});
        const std::string url = server.url("/");
        alarm(60);
        static_cast<void>(write(ready[1], url.c_str(), url.size()));
        pause();
    }
    close(ready[1]);
    char text[64]{};
    ASSERT_GT(read(ready[0], text, sizeof text - 1), 0);
    for (int round = 0; round < testing::attackRounds(10); ++round) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            for (int i = 0; i < 50; ++i) {
                post(text);
            }
            if (round % 2 == 0) {
                get(text).wait();
            }
            std::exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    kill(serving, SIGKILL);
    waitpid(serving, nullptr, 0);
    close(ready[0]);
}

} // namespace

} // namespace morvellacinto::native
