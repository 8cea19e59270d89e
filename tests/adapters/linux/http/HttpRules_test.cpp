// SPDX-License-Identifier: MIT
#include "http/Headers.h"
#include "http/HttpFailure.h"
#include "http/Redirects.h"
#include "http/Trust.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace morvellacinto::native {
namespace {

using ::testing::HasSubstr;
constexpr HttpErrorCode fine{};

template <class Step>
HttpErrorCode codeOf(Step step) {
    try {
        step();
        return fine;
    } catch (const HttpFailure& failure) {
        EXPECT_THAT(failure.message, ::testing::Not(HasSubstr("secret")));
        return failure.code;
    }
}

TEST(HttpRules, UrlsAreTakenAsTheyWillBeUsed) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"HTTPS://Host:8443/a?b=c#d", "https://Host:8443/a?b=c#d"},
        {"https://host", "https://host/"},
        {"https://host/a/../b", "https://host/b"},
        {"http://0x7f.1/", "http://127.0.0.1/"},
        {"own-scheme://host/", "own-scheme://host/"}};
    for (const auto& [text, url] : cases) {
        EXPECT_EQ(CurlUrl::parse(text).value().text(), url);
    }
    EXPECT_EQ(CurlUrl::parse("https://u:p@h:8/a?q#f")->shown(), "https://h:8/a");
    EXPECT_EQ(CurlUrl::parse("HTTPS://Host/a")->origin(), "https://host:443");
}

TEST(HttpRules, OnlyAddressesOfThisMachineAreLoopback) {
    std::istringstream cases("127.0.0.1 1 127.9.9.9 1 [::1] 1 localhost 1 LocalHost 1 0.0.0.0 0 "
                             "[::ffff:127.0.0.1] 0 10.0.0.1 0 128.0.0.1 0 [::2] 0 "
                             "localhost.example 0 127.0.0.1.nip.invalid 0");
    bool isLocal = false;
    for (std::string host; cases >> host >> isLocal;) {
        EXPECT_EQ(CurlUrl::parse("http://" + host)->isLoopback(), isLocal) << host;
    }
}

TEST(HttpRules, WhatMustNotBeSentIsRefused) {
    using enum HttpErrorCode;
    using std::pair;
    const auto refusal = [](const platform::HttpRequest& request) {
        return codeOf([&] { (void)firstHop(request); });
    };
    for (const auto& [url, code] :
         {pair("5/audience/", badUrl), pair("https://secret@host/", badUrl),
          pair("https://:secret@host/", badUrl), pair("http://host/?secret#secret", schemeRefused),
          pair("ftp://host/?secret", schemeRefused), pair("https://host/", fine),
          pair("http://[::1]/", fine)}) {
        EXPECT_EQ(refusal({"GET", url, {}, {}}), code) << url;
    }
    EXPECT_EQ(refusal({"GET", std::nullopt, {}, {}}), badUrl);
    EXPECT_EQ(refusal({"GET /\r\n", "https://host/", {}, {}}), invalidRequest);
}

TEST(HttpRules, ARedirectGoesOnWithWhatItMay) {
    constexpr HttpErrorCode refused = HttpErrorCode::redirectRefused;
    const struct {
        const char* from;
        long status;
        const char* method;
        const char* location;
        HttpErrorCode code;
        const char* next = ""; // where to, the method, whether the body goes, and the own headers
    } cases[] = {
        {"https://a/x", 301, "POST", "y", fine, "https://a/y GET"},
        {"https://a/x", 302, "POST", "/y", fine, "https://a/y GET"},
        {"https://a/x", 303, "PUT", "https://A:443/y", fine, "https://A:443/y GET"},
        {"https://a/x", 307, "POST", "/y?a b", fine, "https://a/y?a+b POST body headers"},
        {"https://a/x", 308, "POST", "/y", fine, "https://a/y POST body headers"},
        {"https://a/x", 302, "GET", "/y", fine, "https://a/y GET headers"},
        {"https://a/x", 302, "GET", "https://a/y z", fine, "https://a/y%20z GET headers"},
        {"https://a/x", 303, "HEAD", "/y", fine, "https://a/y HEAD headers"},
        {"https://a/x", 302, "POST", "https://b/y", fine, "https://b/y GET"},
        {"https://a/x", 307, "GET", "https://b/y", fine, "https://b/y GET"},
        {"https://a/x", 302, "GET", "https://a:8443/y", fine, "https://a:8443/y GET"},
        {"https://a/x", 307, "POST", "https://a:8443/y", refused},
        {"https://a/x", 308, "DELETE", "https://b/y", refused},
        {"https://127.0.0.1/", 302, "GET", "http://127.0.0.1/", fine, "http://127.0.0.1/ GET"},
        {"https://a/x", 302, "GET", "http://127.0.0.1/?secret", refused},
        {"https://127.0.0.1/", 302, "GET", "http://a/", refused},
        {"https://a/x", 302, "GET", "file:///etc/passwd", refused},
        {"https://a/x", 302, "GET", "https://secret:secret@a/", refused},
        {"https://a/x", 302, "GET", "https://:/", refused}};
    for (const auto& each : cases) {
        SCOPED_TRACE(std::to_string(each.status) + " " + each.method + " " + each.location);
        const std::string_view method = each.method;
        const bool hasBody = method == "POST" || method == "PUT";
        const Hop first = firstHop(
            {each.method, each.from, {}, hasBody ? std::optional<std::string>("b") : std::nullopt});
        std::string next;
        const HttpErrorCode code = codeOf([&] {
            const Hop hop = nextHop(first, each.status, each.location);
            next = hop.url.text() + " " + hop.method + (hop.carriesBody ? " body" : "") +
                   (hop.carriesOwnHeaders ? " headers" : "");
            // What was left behind does not come back.
            EXPECT_EQ(nextHop(hop, 307, each.from).carriesOwnHeaders, hop.carriesOwnHeaders);
        });
        EXPECT_EQ(code, each.code);
        EXPECT_EQ(next, each.next);
        EXPECT_TRUE(isRedirect(each.status));
    }
    for (const long status : {200, 300, 304, 305, 306, 309}) {
        EXPECT_FALSE(isRedirect(status)) << status;
    }
    std::optional<Hop> hop = firstHop({"GET", "https://a/", {}, {}});
    for (int i = 0; i < 20; ++i) {
        hop = nextHop(*hop, 302, "/");
    }
    EXPECT_EQ(codeOf([&] { (void)nextHop(*hop, 302, "/"); }), HttpErrorCode::tooManyRedirects);
}

TEST(HttpRules, ARequestsHeadersWinOverItsSessionsAndNoneFramesTheMessage) {
    const auto merged = mergedHeaders({{"A", "session"}, {"B", "session"}}, {{"b", ""}});
    ASSERT_EQ(merged.size(), 2U);
    EXPECT_EQ(merged[0].name + merged[1].name + merged[1].value, "bAsession");
    const auto expectRefused = [](const char* name, const char* value) {
        const HttpErrorCode code = codeOf([&] { (void)mergedHeaders({}, {{name, value}}); });
        EXPECT_EQ(code, HttpErrorCode::invalidRequest) << name;
    };
    expectRefused("A", "1\nB: 2");
    expectRefused("A", "\x7f");
    for (const char* name :
         {"", "A: 1\r\nB", "hOST", "content-length", "Transfer-Encoding", "connection"}) {
        expectRefused(name, "1");
    }
}

TEST(HttpRules, AnAnswersHeadersAreBoundedAndMayNotContradictThemselves) {
    constexpr HttpErrorCode badCoding = HttpErrorCode::badContentEncoding;
    const std::string line = "X: " + std::string(1019, 'x') + "\r\n"; // 1 KiB
    const std::string status = "HTTP/1.1 200 OK\r\n";
    const struct {
        std::vector<std::string> lines;
        HttpErrorCode code;
        bool areComplete = true;
    } cases[] = {
        {{status, "Content-Length: 2\r\n", "content-length:2 \r\n", "\r\n"}, fine},
        {{status, "Content-Length: 2\r\n", "content-length: 3\r\n"},
         HttpErrorCode::malformedAnswer},
        {{status, "Content-Length: 2, 3\r\n"}, HttpErrorCode::malformedAnswer},
        {{status, "Content-Length:\r\n"}, HttpErrorCode::malformedAnswer},
        {{status, "Content-Encoding: GZIP\r\n", "Transfer-Encoding: chunked\r\n", "\n"}, fine},
        {{status, "Content-Encoding: gzip\r\n", "Content-Encoding: gzip\r\n"}, badCoding},
        {{status, "Content-Encoding: gzip\r\n", "Transfer-Encoding: gzip,chunked\r\n"}, badCoding},
        {{status, "Content-Encoding: identity,br\r\n"}, badCoding},
        {{status, "\r\n", "X-Trailer: 1\r\n"}, fine},
        {{"HTTP/1.1 103 Hints\r\n", "Content-Length: 2\r\n", "Content-Encoding: gzip\r\n", "\r\n",
          status, "Content-Length: 3\r\n", "Content-Encoding: gzip\r\n"},
         fine,
         false},
        {std::vector<std::string>(256, line), fine, false},
        {std::vector<std::string>(257, line), HttpErrorCode::answerTooLarge}};
    for (const auto& each : cases) {
        AnswerHeaders headers;
        const HttpErrorCode code = codeOf([&] {
            for (const std::string& text : each.lines) {
                headers.receive(text);
            }
            EXPECT_EQ(headers.areComplete(), each.areComplete) << each.lines.back();
        });
        EXPECT_EQ(code, each.code) << each.lines.back();
    }
}

TEST(HttpRules, TrustAnchorsThatCannotBeReadAreToldAtOnce) {
    const testing::TemporaryDirectory directory;
    directory.write("anchor", "no certificate");
    for (const char* name : {"anchor", "missing"}) {
        const std::filesystem::path file = directory.path() / name;
        EXPECT_THAT([&] { const Trust trust({file}, {}); },
                    ::testing::ThrowsMessage<std::runtime_error>(HasSubstr(file.string())));
    }
}

} // namespace
} // namespace morvellacinto::native
