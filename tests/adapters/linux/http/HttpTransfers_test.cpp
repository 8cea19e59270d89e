// SPDX-License-Identifier: MIT
#include "http/CurlSession.h"
#include "http/TransferLoop.h"
#include "service/Gzip.h"
#include "support/FaultServer.h"
#include "support/ShutdownLimit.h"
#include "support/TestCertificates.h"

#include <morvellacinto/native/HttpError.h>

#include "morvellacinto/foundation/Json.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <future>

namespace morvellacinto::native {
namespace {

using namespace std::chrono_literals;
using morvellacinto::testing::answer;
using morvellacinto::testing::FaultServer;
using morvellacinto::testing::TestAuthority;
using Clock = std::chrono::steady_clock;
using Connection = FaultServer::Connection;
using Request = FaultServer::Request;
using ::testing::HasSubstr;
using ::testing::Not;
constexpr HttpErrorCode fine{};

struct Ending {
    std::optional<std::string> data = {};
    std::optional<platform::HttpResponse> response = {};
    std::optional<KRError> error = {};

    [[nodiscard]] HttpErrorCode code() const { return HttpErrorCode{error ? error->code : 0}; }
    [[nodiscard]] std::string message() const {
        return error ? std::string(error->userInfo.at(KRError::messageKey).asString()) : "";
    }
};

FaultServer::Script saying(const std::string& bytes, void (Connection::*then)() = nullptr) {
    return {.onRequest = [=](Connection& connection, const Request&) {
        connection.write(bytes);
        then != nullptr ? (connection.*then)() : void();
    }};
}

struct HttpTest : ::testing::Test {
    ~HttpTest() override { stop(); }

    void stop() {
        loop()->stop();
        loop_.reset(); // the next request makes another
    }

    /// Each request has its own session, which is dropped while the transfer runs.
    Ending send(platform::HttpRequest request, std::chrono::milliseconds timeout = 30s) {
        const auto promise = std::make_shared<std::promise<Ending>>();
        const auto session = std::make_shared<CurlSession>(
            platform::HttpSessionConfiguration{{{"Accept-Encoding", "gzip"}}, timeout, true},
            loop(), pool);
        session
            ->dataTask(std::move(request),
                       [promise](auto data, auto response, auto error) {
                           promise->set_value({data, response, error});
                       })
            ->resume();
        session->finishTasksAndInvalidate();
        return promise->get_future().get(); // CTest ends a test that waits for ever
    }
    Ending get(const std::string& url) { return send({"GET", url, {}, {}}); }
    Ending post(const std::string& url, std::chrono::milliseconds timeout = 30s) {
        return send({"POST", url, {{"API_TOKEN", "secret-token"}}, "secret-body"}, timeout);
    }

    [[nodiscard]] const std::shared_ptr<TransferLoop>& loop() {
        if (!loop_) {
            loop_ = std::make_shared<TransferLoop>(options, pool);
        }
        return loop_;
    }
    [[nodiscard]] std::shared_ptr<SSL_CTX> tls() const {
        return authority.serverContext("IP:127.0.0.1,DNS:localhost");
    }

    const TestAuthority authority;
    WorkerPool pool{[](const std::exception_ptr&) { ADD_FAILURE() << "an exception"; }, 0ms};
    HttpOptions options{.trustAnchors = {authority.file()}};
    std::shared_ptr<TransferLoop> loop_;
};

// OpenSSL would refuse TLS 1.1 by itself, were it not told to be lenient before it is first used.
const bool isLenient = [] {
    static const testing::TemporaryDirectory folder;
    folder.write("openssl.cnf", "openssl_conf = a\n[a]\nssl_conf = b\n[b]\nsystem_default = c\n"
                                "[c]\nMinProtocol = TLSv1\nCipherString = DEFAULT@SECLEVEL=0\n");
    return setenv("OPENSSL_CONF", (folder.path() / "openssl.cnf").c_str(), 1) == 0;
}();

TEST_F(HttpTest, AnUploadArrivesByteForByteByASocketThatNoOtherProgramInherits) {
    int inheritable = 0;
    FaultServer server(tls(), {.onRequest = [&](Connection& connection, const Request&) {
                           for (int socket = 3; socket < 64; ++socket) {
                               sockaddr place{};
                               socklen_t length = sizeof place;
                               inheritable += getsockname(socket, &place, &length) == 0 &&
                                              place.sa_family == AF_INET &&
                                              fcntl(socket, F_GETFD) != FD_CLOEXEC;
                           }
                           connection.write(answer(200, "{}"));
                       }});
    std::string body(3 << 20, 'x');
    body[1] = '\0';
    const Ending ending =
        send({"POST",
              server.url("/v5?a=b"),
              {{"API_TOKEN", "secret"}, {"content-type", "application/json"}, {"X-Empty", ""}},
              body});
    EXPECT_EQ(ending.data, "{}") << ending.message();
    EXPECT_EQ(ending.response.value().url, server.url("/v5?a=b"));
    EXPECT_EQ(server.requests().at(0).head,
              "POST /v5?a=b HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nUser-Agent: Morvellacinto\r\nAccept: */*\r\nAPI_TOKEN: secret\r\n"
                  "content-type: application/json\r\nX-Empty:\r\nAccept-Encoding: gzip\r\n"
                  "Content-Length: 3145728\r\n\r\n");
    EXPECT_TRUE(server.requests()[0].body == body);
    EXPECT_EQ(inheritable, 0);
}

TEST_F(HttpTest, WhatIsNoWholeAndBoundedAnswerIsAnError) {
    using enum HttpErrorCode;
    const std::string large((64 << 20) + 1, 'a');
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string packed = service::gzip(std::string(100'000, 'a'));
    std::string damaged = packed;
    damaged[damaged.size() - 6] ^= 1; // in the checksum
    const struct {
        const char* name;
        std::string bytes;
        HttpErrorCode code;
    } cases[] = {
        {"gzip", answer(200, packed, "Content-Encoding: gzip\r\n"), fine},
        {"damaged gzip", answer(200, damaged, "Content-Encoding: gzip\r\n"), badContentEncoding},
        {"bomb", answer(200, service::gzip(large), "Content-Encoding: gzip\r\n"), answerTooLarge},
        {"64 MiB", answer(200, large.substr(1)), fine},
        {"a byte more", answer(200, large), answerTooLarge},
        {"a redirect's body", answer(302, large, "Location: /\r\n"), answerTooLarge},
        {"no UTF-8", answer(302, "", "Location: http://\xff/\r\n"), redirectRefused},
        {"no HTTP", "SSH-2.0-server\r\n\r\n", malformedAnswer},
        {"another protocol", "HTTP/1.1 101 Other\r\nUpgrade: x\r\nConnection: upgrade\r\n\r\nabc",
         malformedAnswer},
        {"nothing", "", connectionLost},
        {"headers without their end", ok + "X: 1\r\n", connectionLost},
        {"half a body", ok + "Content-Length: 4\r\n\r\n{}", connectionLost}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        FaultServer server(nullptr, saying(each.bytes, &Connection::close));
        const Ending ending = get(server.url("/?secret#secret"));
        EXPECT_EQ(ending.code(), each.code) << ending.message();
        EXPECT_THAT(ending.message(), Not(HasSubstr("secret")));
        EXPECT_NO_THROW(static_cast<void>(writeJsonFragment(ending.message())));
        if (each.name == std::string("gzip")) {
            EXPECT_EQ(ending.data->size(), 100'000U);
        }
    }
}

TEST_F(HttpTest, InEveryPhaseTheTimeoutCountsAndAStopIsQuickAndNoCompletionRunsAfterwards) {
    const std::pair<const char*, FaultServer::Script> phases[] = {
        {"in the handshake", {.onAccept = &Connection::stall}},
        {"in the body",
         saying("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n{}", &Connection::stall)},
        {"redirects", {.onRequest = [](Connection& connection, const Request&) {
             connection.pause(60ms);
             connection.write(answer(302, "", "Location: /\r\n"));
         }}}};
    for (const auto& [name, script] : phases) {
        SCOPED_TRACE(name);
        FaultServer server(tls(), script);
        auto start = Clock::now();
        const Ending ending = post(server.url("/"), 300ms);
        EXPECT_EQ(ending.code(), HttpErrorCode::timedOut) << ending.message();
        EXPECT_GE(Clock::now() - start, 300ms);
        EXPECT_LT(Clock::now() - start, 5s);
        EXPECT_TRUE(name != phases[1].first || ending.data == "{}") << "as far as it had come";
        const auto witness = std::make_shared<int>();
        const auto session =
            std::make_shared<CurlSession>(platform::HttpSessionConfiguration{}, loop(), pool);
        const auto makeTask = [&] {
            return session->dataTask({"POST", server.url("/"), {}, "body"},
                                     [witness](auto...) { ADD_FAILURE() << "too late"; });
        };
        const auto notStarted = makeTask();
        for (int i = 0; i < 20; ++i) {
            makeTask()->resume();
        }
        ASSERT_TRUE(server.waitForConnections(3));
        start = Clock::now();
        stop();
        EXPECT_LT(Clock::now() - start, testing::shutdownLimit);
        EXPECT_EQ(witness.use_count(), 2); // here and in the task that was not started
        notStarted->resume();
        EXPECT_EQ(witness.use_count(), 1);
    }
}

TEST_F(HttpTest, ACompletionThatWaitsForAnotherDoesNotRunAfterAStop) {
    options.idleTime = 100ms;
    FaultServer server(nullptr, {});
    const auto session =
        std::make_shared<CurlSession>(platform::HttpSessionConfiguration{}, loop(), pool);
    std::atomic<int> called = 0;
    std::promise<void> mayReturn;
    for (int i = 0; i < 2; ++i) {
        session
            ->dataTask({"GET", server.url("/"), {}, {}},
                       [&](auto...) {
                           ++called;
                           mayReturn.get_future().wait();
                       })
            ->resume();
    }
    ASSERT_TRUE(server.waitForRequests(2) && server.waitForClosed(server.connections()));
    stop(); // both have been handed over
    mayReturn.set_value();
    std::promise<void> last;
    session->queue().post([&] { last.set_value(); });
    last.get_future().wait();
    EXPECT_EQ(called, 1);
}

TEST_F(HttpTest, ConnectionsAreReusedUntilAnIdleTime) {
    options.idleTime = 1s;
    FaultServer server(tls(), {});
    for (const int connections : {1, 1, 2}) {
        EXPECT_EQ(post(server.url("/")).data, "{}");
        EXPECT_EQ(server.connections(), connections);
        // It ends with the thread, which the next request starts anew.
        ASSERT_TRUE(server.requests().size() != 2 || server.waitForClosed(1));
    }
}

TEST_F(HttpTest, ServersAreJudgedByTheirCertificateTheirNameAndTheirTls) {
    const TestAuthority stranger;
    const auto old = tls();
    SSL_CTX_set_security_level(old.get(), 0);
    SSL_CTX_set_min_proto_version(old.get(), TLS1_VERSION);
    SSL_CTX_set_max_proto_version(old.get(), TLS1_1_VERSION);
    const std::pair<std::shared_ptr<SSL_CTX>, HttpErrorCode> cases[] = {
        {tls(), fine},
        {stranger.serverContext("IP:127.0.0.1"), HttpErrorCode::certificateUntrusted},
        {authority.serverContext("DNS:audience.invalid"), HttpErrorCode::certificateUntrusted},
        {old, HttpErrorCode::tlsFailed}};
    for (const auto& [context, code] : cases) {
        FaultServer server(context, {});
        const Ending ending = post(server.url("/v5?lat=59.329#59.329"));
        EXPECT_EQ(ending.code(), code) << ending.message();
        if (ending.error) {
            EXPECT_EQ(ending.error->userInfo.at(KRError::urlKey), Value(server.url("/v5")));
            EXPECT_THAT(ending.message(), Not(HasSubstr("59.329")));
            EXPECT_TRUE(server.requests().empty());
        }
    }
    for (const bool isCut : {false, true}) {
        FaultServer server(tls(), {.onRequest = [&](Connection& connection, const Request&) {
                               connection.write("HTTP/1.1 200 OK\r\n\r\n");
                               connection.write("{}");
                               isCut ? connection.close() : connection.closeTls();
                           }});
        EXPECT_EQ(get(server.url("/")).code(), isCut ? HttpErrorCode::connectionLost : fine);
    }
    FaultServer server(tls(), saying("HTTP/1.1 204 None\r\n\r\n"));
    EXPECT_EQ(get(server.url("/")).code(), fine);
}

TEST_F(HttpTest, ChangedTrustCountsAtOnceAlsoForKeptConnectionsAndTlsSessions) {
    const TestAuthority stranger;
    const testing::TemporaryDirectory folder;
    folder.write(stranger.hashedName(), stranger.pem());
    const std::filesystem::path hashed = authority.hashedName();
    const std::filesystem::path file = folder.path() / "file";
    const struct {
        const char* way;
        std::filesystem::path changed;
        std::vector<std::filesystem::path> anchors;
        SystemRoots roots;
    } cases[] = {{"directory", hashed, {}, {{"/nonexistent", folder.path()}, "/nonexistent"}},
                 {"bundle", "file", {}, {{}, file}},
                 {"anchor", "file", {file}, {}},
                 {"bundle beside an anchor", "file", {stranger.file()}, {{}, file}}};
    for (const auto& [way, changed, anchors, roots] : cases) {
        SCOPED_TRACE(way);
        FaultServer server(tls(), {});
        stop();
        options.systemRoots = roots;
        folder.write(changed, authority.pem());
        options.trustAnchors = anchors;
        EXPECT_EQ(get(server.url("/")).data, "{}");
        std::filesystem::remove(folder.path() / changed);
        EXPECT_EQ(get(server.url("/")).code(), HttpErrorCode::certificateUntrusted);
        folder.write(changed, authority.pem());
        EXPECT_EQ(get(server.url("/")).data, "{}");
        std::filesystem::remove(folder.path() / changed);
    }
}

TEST_F(HttpTest, TokensAndCookiesStayWithinTheirOriginAndTheirRequest) {
    std::string location;
    const FaultServer::Script script{
        .onRequest = [&](Connection& connection, const Request& request) {
            connection.write(
                request.path() == "/"
                    ? answer(302, "moved", "Set-Cookie: crumb=1\r\nLocation: " + location + "\r\n")
                    : answer(200, "{}"));
        }};
    FaultServer server(tls(), script);
    FaultServer elsewhere(tls(), script);
    const platform::HttpRequest request{"GET", server.url("/"), {{"API_TOKEN", "1"}}, {}};
    location = "/same";
    EXPECT_EQ(send(request).response.value().url, server.url("/same"));
    EXPECT_EQ(post(server.url("/")).data, "{}");
    EXPECT_THAT(server.requests().back().head,
                ::testing::AllOf(HasSubstr("GET /same"), Not(HasSubstr("Content-Length"))));
    location = elsewhere.url("/other");
    EXPECT_EQ(send(request).data, "{}");
    const std::string both = server.requests().at(1).head;
    EXPECT_THAT(both, ::testing::AllOf(HasSubstr("API_TOKEN: 1"), HasSubstr("Cookie: crumb=1")));
    EXPECT_THAT(server.requests().at(4).head, Not(HasSubstr("Cookie")));
    EXPECT_THAT(elsewhere.requests().at(0).head,
                Not(::testing::AnyOf(HasSubstr("API_TOKEN"), HasSubstr("Cookie"))));

    FaultServer proxy(nullptr, saying(answer(403, "")));
    for (const char* variable : {"http_proxy", "https_proxy", "all_proxy"}) {
        setenv(variable, proxy.url("").c_str(), 1);
    }
    EXPECT_TRUE(post("https://audience.invalid/").error);
    EXPECT_THAT(proxy.requests().at(0).head, HasSubstr("CONNECT audience.invalid:443 "));
    EXPECT_THAT(proxy.requests().at(0).head, Not(HasSubstr("API_TOKEN")));
    FaultServer plain(nullptr, {});
    EXPECT_EQ(get(plain.url("/")).data, "{}");
    EXPECT_EQ(get(plain.url("/", "localhost")).data, "{}");
    EXPECT_EQ(proxy.requests().size(), 1U);

    for (const bool isNone : {false, true}) {
        stop();
        options.proxy = isNone ? "" : proxy.url("");
        setenv("https_proxy", isNone ? proxy.url("").c_str() : "http://proxy.invalid", 1);
        setenv("no_proxy", isNone ? "" : "audience.invalid", 1);
        EXPECT_TRUE(get("https://audience.invalid/").error);
        EXPECT_EQ(get(plain.url("/")).data, "{}");
        EXPECT_EQ(proxy.requests().size(), 2U) << isNone;
    }
}

} // namespace
} // namespace morvellacinto::native
