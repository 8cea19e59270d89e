#include "HttpFixture.h"

#include "support/Attack.h"
#include "support/SilentNameServer.h"

#include <list>
#include <sys/resource.h>

namespace morvellacinto::native {

namespace {

using ::testing::AnyOf;
using Clock = std::chrono::steady_clock;
using Connection = FaultServer::Connection;
using Request = FaultServer::Request;

struct Fault {
    const char* name;
    void (*happen)(Connection&);
    bool stalls = false;
};

const Fault faults[] = {
    {"stalls", [](Connection& connection) { connection.stall(); }, true},
    {"closes", [](Connection& connection) { connection.close(); }},
    {"resets", [](Connection& connection) { connection.reset(); }},
};

enum class Phase { accepted, beforeAnswer, inHeaders, inBody, inChunk };

const Phase phases[] = {Phase::accepted, Phase::beforeAnswer, Phase::inHeaders, Phase::inBody,
                        Phase::inChunk};

FaultServer::Script scriptOf(Phase phase, const Fault& fault) {
    if (phase == Phase::accepted) {
        return {.onAccept = fault.happen};
    }
    return {.onRequest = [phase, fault](Connection& connection, const Request&) {
        if (phase == Phase::inHeaders) {
            connection.write("HTTP/1.1 200 OK\r\nContent-Le");
        } else if (phase == Phase::inBody) {
            connection.write("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n{}");
        } else if (phase == Phase::inChunk) {
            connection.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\n{}");
        }
        fault.happen(connection);
    }};
}

class HttpFaultsTest : public HttpTest {};

TEST_F(HttpFaultsTest, AServerThatBreaksOffInAnyPhaseIsAnErrorAndOneThatStallsATimeout) {
    for (const bool encrypted : {true, false}) {
        for (const Phase phase : phases) {
            for (const Fault& fault : faults) {
                SCOPED_TRACE(std::string(encrypted ? "TLS, phase " : "plain, phase ") +
                             std::to_string(static_cast<int>(phase)) + ", " + fault.name);
                FaultServer server(encrypted ? tls() : nullptr, scriptOf(phase, fault));
                const auto start = Clock::now();
                const Ending ending = result(post(server.url("/"), fault.stalls ? 100ms : 30s));
                const bool atOnce = phase == Phase::accepted;
                const auto lost =
                    atOnce && encrypted ? HttpErrorCode::tlsFailed : HttpErrorCode::connectionLost;
                // A connection that ends at once may never have been seen to be there.
                const auto orUnseen = atOnce ? HttpErrorCode::cannotConnect : lost;
                if (fault.stalls) {
                    EXPECT_EQ(ending.code(), HttpErrorCode::timedOut) << ending.message();
                } else {
                    EXPECT_THAT(ending.code(), AnyOf(lost, orUnseen)) << ending.message();
                }
                EXPECT_LT(Clock::now() - start, 5s);
                if (phase >= Phase::inBody && fault.stalls) {
                    EXPECT_EQ(ending.data, "{}"); // as far as it had come
                    EXPECT_EQ(ending.response.value().status, 200);
                }
            }
        }
    }
}

TEST_F(HttpFaultsTest, WhatIsNoAnswerToTheRequestIsAnErrorAndNobodyListeningToo) {
    const std::string head = "HTTP/1.1 200 OK\r\n";
    const std::string line = "X: " + std::string(4000, 'x') + "\r\n";
    const struct {
        std::string bytes;
        HttpErrorCode code;
        std::string repeated; // for some megabytes
    } cases[] = {
        {"SSH-2.0-server\r\n\r\n", HttpErrorCode::malformedAnswer, ""},
        {head + "Transfer-Encoding: chunked\r\n\r\nzz\r\n", HttpErrorCode::malformedAnswer, ""},
        {"HTTP/1.1 101 Other\r\nUpgrade: x\r\nConnection: upgrade\r\n\r\nabc",
         HttpErrorCode::malformedAnswer, ""},
        {head + "Transfer-Encoding: gzip\r\n\r\n\x1f\x8b\x08", HttpErrorCode::badContentEncoding,
         ""},
        {head, HttpErrorCode::answerTooLarge, line},
        {"", HttpErrorCode::answerTooLarge, "HTTP/1.1 100 Continue\r\n" + line + "\r\n"},
        {head + "Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n", HttpErrorCode::answerTooLarge,
         line},
    };
    for (const auto& each : cases) {
        FaultServer server(nullptr, {.onRequest = [&](Connection& connection, const Request&) {
                               connection.write(each.bytes);
                               for (int i = 0; i < 1000 && !each.repeated.empty(); ++i) {
                                   connection.write(each.repeated);
                               }
                               connection.close();
                           }});
        EXPECT_EQ(result(get(server.url("/"))).code(), each.code) << each.bytes << each.repeated;
    }
    std::string url;
    {
        const FaultServer gone(nullptr, {});
        url = gone.url("/");
    }
    EXPECT_EQ(result(get(url)).code(), HttpErrorCode::cannotConnect);
}

TEST_F(HttpFaultsTest, TheTimeoutCoversADrippingBodyAndAllRedirectsTogether) {
    FaultServer server(nullptr, {.onRequest = [](Connection& connection, const Request& request) {
                           if (request.path() == "/drip") {
                               connection.write("HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n");
                               for (int i = 0; i < 500; ++i) {
                                   connection.pause(20ms);
                                   connection.write(" ");
                               }
                           } else {
                               connection.pause(60ms);
                               connection.write(answer(302, "", "Location: /\r\n"));
                           }
                       }});
    for (const char* path : {"/drip", "/"}) {
        const auto start = Clock::now();
        EXPECT_EQ(result(get(server.url(path), 300ms)).code(), HttpErrorCode::timedOut) << path;
        EXPECT_GE(Clock::now() - start, 290ms) << path; // libcurl counts whole milliseconds
        EXPECT_LT(Clock::now() - start, 2s) << path;
    }
}

TEST_F(HttpFaultsTest, StalledHostsDelayNoOtherAndTimeOutAlsoWhatWaitsForAConnection) {
    FaultServer healthy(tls(), {}, "127.0.0.2");
    const std::string url = healthy.url("/", "127.0.0.2");
    {
        // For what the transport reads when its thread starts: not enough for all.
        rlimit descriptors{};
        getrlimit(RLIMIT_NOFILE, &descriptors);
        const rlimit fewer{128, descriptors.rlim_max};
        setrlimit(RLIMIT_NOFILE, &fewer);
        EXPECT_EQ(result(post(url)).data, "{}");
        setrlimit(RLIMIT_NOFILE, &descriptors);
    }
    const FaultServer::Script stall = scriptOf(Phase::accepted, faults[0]);
    std::list<FaultServer> stalled;
    std::vector<std::future<Ending>> waiting;
    const auto start = Clock::now();
    for (const int mayHave : {32, 16, 8, 4}) {
        FaultServer& server = stalled.emplace_back(tls(), stall);
        for (int i = 0; i < 40; ++i) {
            waiting.push_back(post(server.url("/"), 3s));
        }
        EXPECT_TRUE(server.waitForConnections(mayHave));
        EXPECT_EQ(result(post(url)).data, "{}");
    }
    EXPECT_LT(Clock::now() - start, 3s);
    EXPECT_EQ(stalled.front().connections(), 32);
    for (auto& each : waiting) {
        EXPECT_EQ(result(std::move(each)).code(), HttpErrorCode::timedOut);
    }
    EXPECT_LT(Clock::now() - start, 9s);
}

TEST_F(HttpFaultsTest, ShutdownCancelsInEveryPhaseAndReleasesTheCompletions) {
    for (const Phase phase : phases) {
        SCOPED_TRACE(static_cast<int>(phase));
        FaultServer server(tls(), scriptOf(phase, faults[0]));
        HttpTransport mine(options, pool);
        std::atomic<int> called = 0;
        const auto witness = std::make_shared<int>();
        std::vector<std::shared_ptr<platform::HttpTask>> tasks;
        const auto session = mine.makeSession(configuration(), nullptr);
        for (int i = 0; i < 100; ++i) {
            tasks.push_back(session->dataTask({"POST", server.url("/"), {}, "body"},
                                              [&called, witness](auto, auto, auto) { ++called; }));
            if (i > 0) {
                tasks.back()->resume();
            }
        }
        ASSERT_TRUE(phase == Phase::accepted ? server.waitForConnections(2)
                                             : server.waitForRequests(2));
        const auto start = Clock::now();
        mine.shutdown();
        const auto took = Clock::now() - start;
        EXPECT_LT(took, testing::shutdownLimit());
        RecordProperty("milliseconds" + std::to_string(static_cast<int>(phase)),
                       static_cast<int>(took / 1ms));
        EXPECT_EQ(witness.use_count(), 2); // here and in the task that was not started
        tasks.front()->resume();           // too late
        EXPECT_EQ(witness.use_count(), 1);
        EXPECT_EQ(called, 0);
        mine.shutdown();
    }
}

TEST_F(HttpFaultsTest, NameLookupsThatHangHoldUpNeitherOtherRequestsNorTheShutdown) {
    const std::unique_ptr<testing::SilentNameServer> nameServer =
        testing::SilentNameServer::start();
    if (!nameServer) {
        GTEST_SKIP() << "needs the right to make a network namespace";
    }
    FaultServer healthy(tls(), {});
    std::vector<std::future<Ending>> hanging;
    for (int i = 0; i < 10; ++i) {
        hanging.push_back(post("https://audience.test/", 500ms));
    }
    ASSERT_TRUE(nameServer->isAsked());
    const auto start = Clock::now();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(result(post(healthy.url("/"))).data, "{}");
    }
    for (auto& each : hanging) {
        EXPECT_EQ(result(std::move(each)).code(), HttpErrorCode::timedOut);
    }
    EXPECT_LT(Clock::now() - start, 3s);

    post("https://audience2.test/");
    ASSERT_TRUE(nameServer->isAsked());
    const auto shutdown = Clock::now();
    transport().shutdown();
    const auto took = Clock::now() - shutdown;
    EXPECT_LT(took, testing::shutdownLimit());
    RecordProperty("milliseconds", static_cast<int>(took / 1ms));
}

} // namespace

} // namespace morvellacinto::native
