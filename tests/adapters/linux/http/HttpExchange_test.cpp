#include "HttpFixture.h"

#include <zlib.h>

namespace morvellacinto::native {

namespace {

std::string gzip(std::string_view text) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

class HttpExchangeTest : public HttpTest {};

TEST_F(HttpExchangeTest, AnUploadArrivesByteForByte) {
    FaultServer server(tls(), {});
    std::string body(3 << 20, 'x');
    body[1] = '\0';
    body[2] = '\n';
    const std::string token = "0F8FAD5B-D9CB-469F-A165-70867728950E";
    const Ending ending =
        result(send({"POST", server.url("/v5/audience/"), {{"API_TOKEN", token}}, body}));

    EXPECT_EQ(ending.data, "{}");
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].head,
              "POST /v5/audience/ HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nAccept: */*\r\nAccept-Encoding: gzip\r\nAPI_TOKEN: " + token +
                  "\r\nUser-Agent: Morvellacinto\r\nContent-Length: 3145728\r\n"
                  "Content-Type: application/x-www-form-urlencoded\r\n\r\n");
    EXPECT_TRUE(server.requests()[0].body == body);
}

TEST_F(HttpExchangeTest, ARequestsOwnHeadersWinOverAllOthers) {
    FaultServer server(nullptr, {});
    result(send({"POST",
                 server.url("/"),
                 {{"accept-encoding", "identity"},
                  {"Content-Type", "application/json"},
                  {"User-Agent", "host/1"},
                  {"X-Empty", ""}},
                 "{}"}));

    EXPECT_EQ(server.requests().at(0).head,
              "POST / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                  "\r\nAccept: */*\r\naccept-encoding: identity\r\n"
                  "Content-Type: application/json\r\nUser-Agent: host/1\r\nX-Empty:\r\n"
                  "Content-Length: 2\r\n\r\n");
}

TEST_F(HttpExchangeTest, GzipIsUndoneAndDamageIsAnError) {
    const std::string text(100'000, 'a');
    const std::string packed = gzip(text);
    std::string damaged = gzip("{\"tags\": [1, 2, 3]}");
    damaged[damaged.size() - 6] ^= 1; // in the checksum
    const std::string bomb = gzip(std::string((64 << 20) + 1, 'a'));
    const struct {
        const char* name;
        std::string body;
        const char* encoding;
        HttpErrorCode code;
        std::optional<std::string> data;
    } cases[] = {
        {"whole", packed, "gzip", {}, text},
        {"two members", packed + packed, "GZIP", {}, text + text},
        {"empty", "", "gzip", {}, ""},
        {"plain", text, nullptr, {}, text},
        {"identity", text, "identity", {}, text},
        {"truncated", packed.substr(0, packed.size() - 1), "gzip",
         HttpErrorCode::badContentEncoding, text},
        {"damaged", damaged, "gzip", HttpErrorCode::badContentEncoding, std::nullopt},
        {"not gzip at all", "{}", "gzip", HttpErrorCode::badContentEncoding, ""},
        {"another encoding", "{}", "br", HttpErrorCode::badContentEncoding, ""},
        {"twice", gzip(packed), "gzip, gzip", HttpErrorCode::badContentEncoding, ""},
        {"bomb", bomb, "gzip", HttpErrorCode::answerTooLarge, std::nullopt},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const std::string header =
            each.encoding ? std::string("Content-Encoding: ") + each.encoding + "\r\n" : "";
        FaultServer server(nullptr, {.onRequest = [&](Connection& connection, const Request&) {
                               connection.write(answer(200, each.body, header));
                           }});
        const Ending ending = result(get(server.url("/")));
        EXPECT_EQ(ending.code(), each.code) << ending.message();
        if (each.data) {
            EXPECT_TRUE(ending.data == each.data) << ending.data.value_or("nothing").substr(0, 50);
        }
    }
}

TEST_F(HttpExchangeTest, APlainAnswerMayHave64MiBAndNotOneByteMore) {
    FaultServer server(nullptr, {.onRequest = [](Connection& connection, const Request& request) {
                           const std::size_t excess = request.path() == "/more" ? 1 : 0;
                           connection.write(answer(200, std::string((64 << 20) + excess, 'a')));
                       }});
    EXPECT_EQ(result(get(server.url("/"))).data.value_or("").size(), std::size_t(64) << 20);
    EXPECT_EQ(result(get(server.url("/more"))).code(), HttpErrorCode::answerTooLarge);
}

TEST_F(HttpExchangeTest, CookiesAreKeptBetweenSessionsOfOnePlatformOnly) {
    FaultServer server(nullptr, {.onRequest = [](Connection& connection, const Request&) {
                           connection.write(answer(200, "{}", "Set-Cookie: crumb=1\r\n"));
                       }});
    result(get(server.url("/")));
    result(get(server.url("/")));
    HttpTransport other(options, pool);
    std::promise<void> done;
    const auto session = other.makeSession(configuration(), nullptr);
    session->dataTask({"GET", server.url("/"), {}, {}}, [&](auto, auto, auto) { done.set_value(); })
        ->resume();
    done.get_future().wait();

    using ::testing::HasSubstr;
    using ::testing::Not;
    EXPECT_THAT(server.requests().at(0).head, Not(HasSubstr("Cookie")));
    EXPECT_THAT(server.requests().at(1).head, HasSubstr("Cookie: crumb=1\r\n"));
    EXPECT_THAT(server.requests().at(2).head, Not(HasSubstr("Cookie")));
}

TEST_F(HttpExchangeTest, ConnectionsAreReusedAndTlsSessionsResumedAfterAnIdleTime) {
    options.idleTime = 1s;
    FaultServer server(tls(), {.onRequest = [](Connection& connection, const Request& request) {
                           if (request.path() == "/slow") { // that long is not idle
                               connection.pause(1200ms);
                           }
                           connection.write(answer(200, "{}"));
                       }});
    EXPECT_EQ(result(post(server.url("/slow"))).data, "{}");
    for (int upload = 0; upload < 3; ++upload) {
        EXPECT_EQ(result(post(server.url("/"))).data, "{}");
    }
    EXPECT_EQ(server.connections(), 1);

    // It ends with the thread, which the next request starts anew.
    ASSERT_TRUE(server.waitForClosed(1));
    EXPECT_EQ(result(post(server.url("/"))).data, "{}");
    EXPECT_EQ(server.connections(), 2);
    EXPECT_EQ(server.resumedTlsSessions(), 1);
}

} // namespace

} // namespace morvellacinto::native
