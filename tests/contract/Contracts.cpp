// SPDX-License-Identifier: MIT
#include "contract/Contracts.h"

#include "morvellacinto/foundation/Array.h"
#include "morvellacinto/foundation/Object.h"
#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/UrlParser.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <gmock/gmock.h>

#include <atomic>
#include <span>
#include <sstream>

namespace morvellacinto::contract {

using namespace std::string_view_literals;

struct Contract : ::testing::Test {
    [[nodiscard]] bool pumpUntil(const std::function<bool()>& done) {
        return subject->pumpUntil(done);
    }

    const std::unique_ptr<Subject> subject = makeSubject();
    platform::Platform& platform = subject->platform();
};

TEST_F(Contract, BlocksRunInOrderOnTheirThreadsNeverInsideTheCallAndNoneAfterAShutdown) {
    platform::Dispatch& dispatch = platform.dispatch();
    std::vector<int> order;
    const auto note = [&](int number) {
        EXPECT_TRUE(dispatch.isMainThread());
        order.push_back(number);
    };
    dispatch.asyncMain([&] {
        note(1);
        dispatch.asyncMain([&] { note(3); });
        EXPECT_EQ(order.size(), 1U);
    });
    dispatch.asyncMain([&] { note(2); });
    EXPECT_TRUE(order.empty());
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 3; }));
    dispatch.asyncGlobal([&] {
        EXPECT_FALSE(dispatch.isMainThread());
        dispatch.asyncMain([&] { note(4); });
    });
    EXPECT_TRUE(pumpUntil([&] { return order == std::vector{1, 2, 3, 4}; }));
    dispatch.asyncGlobal([] { throw std::range_error("from a global block"); });
    EXPECT_THROW((void)pumpUntil([] { return false; }), std::range_error);

    const auto captured = std::make_shared<int>();
    dispatch.asyncMain([captured] { ADD_FAILURE(); });
    platform.shutdown();
    dispatch.asyncMain([captured] { ADD_FAILURE(); });
    dispatch.asyncGlobal([captured] { ADD_FAILURE(); });
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(Contract, AFailedAssertionThrows) {
    EXPECT_THROW(platform.assertionHandler().handleFailureInFunction("f", "file", 1, "text"),
                 platform::AssertionFailure);
}

TEST_F(Contract, AUrlIsAbsoluteOrNothing) {
    for (const char* good :
         {"https://[::1]:8443/", "http://127.0.0.1:8080//x?y=%C3%A5&z", "ftp://files.example/x",
          "https://a.example/-._~:@!$&'()*+,;=?/?#/?%7C"}) {
        EXPECT_EQ(platform.urlParser().parse(good), good);
    }
    std::istringstream refused("|a.example|/v5/|5/audience/|https:|://example|http:/example/|"
                               "http:example|http:///example/|https://example:99999/|"
                               "https://example/%zz|https://example/%4|https://exa mple/|"
                               "https://ex\xC3\xA5mple/");
    for (std::string bad; std::getline(refused, bad, '|');) {
        EXPECT_EQ(platform.urlParser().parse(bad), std::nullopt) << bad;
    }
    for (const char bad : "\"<>{}|\\^`\n\0"sv) {
        const std::string url = std::string("https://example/a?b=") + bad;
        EXPECT_EQ(platform.urlParser().parse(url), std::nullopt) << url;
    }
}

TEST_F(Contract, DefaultsKeepEveryKindUnderExactlyOneKeyAndRefuseWhatTheyCannotKeep) {
    platform::UserDefaults& defaults = platform.standardUserDefaults();
    const std::byte bytes[] = {std::byte{0}, std::byte{255}};
    const Value value = Object{{"z", Array::of({true, 0.5F, 0.1, Date{0.5}, "å\0b"sv})},
                               {"a", Object{{"deep", Value(std::span(bytes))}}}};
    defaults.setObjectForKey(value, "key");
    EXPECT_TRUE(defaults.synchronize());
    ASSERT_EQ(defaults.objectForKey("key"), value);
    EXPECT_EQ(defaults.objectForKey("key")->asObject().begin()->key(), "z") << "members in order";
    defaults.setObjectForKey("other", "Key");
    defaults.removeObjectForKey("key");
    EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
    for (const Value& refused : {Value(), Value(Object{{"a", Array::of({nullptr})}}),
                                 Value(Array::of({makeInstance<Instance>()}))}) {
        EXPECT_THROW(defaults.setObjectForKey(refused, "Key"), std::invalid_argument);
    }
    EXPECT_EQ(defaults.objectForKey("Key"), Value("other"));
}

struct HttpContract : Contract {
    struct Ending {
        std::optional<std::string> data;
        std::optional<platform::HttpResponse> response;
        std::optional<KRError> error;
        std::atomic<int> calls = 0; ///< raised last
    };

    std::shared_ptr<platform::HttpTask> task(platform::HttpRequest request,
                                             const std::shared_ptr<Ending>& ending) {
        return session->dataTask(std::move(request),
                                 [this, ending](auto data, auto response, auto error) {
                                     EXPECT_FALSE(platform.dispatch().isMainThread());
                                     ending->data = std::move(data);
                                     ending->response = std::move(response);
                                     ending->error = std::move(error);
                                     ++ending->calls;
                                 });
    }
    std::shared_ptr<Ending> ending(platform::HttpRequest request) {
        auto ending = std::make_shared<Ending>();
        const auto sent = task(std::move(request), ending);
        sent->resume();
        sent->resume();
        EXPECT_TRUE(pumpUntil([&] { return ending->calls > 0; }));
        return ending;
    }

    std::shared_ptr<platform::HttpSession> session = platform.makeHttpSession(
        {.additionalHeaders = {{"X-Session", "session"}, {"X-Both", "session"}}}, nullptr);
};

TEST_F(HttpContract, SendsARequestOnceItsHeadersWinningAndDeliversTheAnswerWhateverTheStatus) {
    std::size_t count = 0;
    for (const int status : {200, 300, 401, 500}) {
        const std::string body(count, '\0');
        const std::string url = subject->serve(status, body);
        const auto end = ending({"POST", url, {{"X-Both", "own"}, {"X-Request", "own"}}, body});
        EXPECT_EQ(end->data, body);
        ASSERT_TRUE(end->response.has_value());
        EXPECT_EQ(end->response->status, status);
        EXPECT_EQ(end->response->url, url);
        EXPECT_EQ(end->error, std::nullopt);
        const auto received = subject->received();
        ASSERT_EQ(received.size(), ++count) << "a second resume sends nothing";
        EXPECT_TRUE(received.back().starts_with("POST "));
        EXPECT_TRUE(received.back().ends_with("\r\n\r\n" + body));
        for (const std::string header : {"X-Both: own", "X-Request: own", "X-Session: session"}) {
            EXPECT_THAT(received.back(), ::testing::HasSubstr("\r\n" + header + "\r\n"));
        }
        EXPECT_THAT(received.back(), ::testing::Not(::testing::HasSubstr("X-Both: session")));
    }
}

TEST_F(HttpContract, ARequestWithoutAUrlFailsWithWhatItWasGivenInstead) {
    const auto end = ending({"GET", std::nullopt, {}, {}, "5/audience/"});
    EXPECT_EQ(end->response, std::nullopt);
    ASSERT_TRUE(end->error.has_value());
    EXPECT_EQ(end->error->userInfo.at(KRError::urlKey), "5/audience/");
    EXPECT_EQ(end->error->userInfo.at(KRError::messageKey),
              "The request has no valid URL: 5/audience/.");
}

TEST_F(HttpContract, AnInvalidatedSessionFinishesStartedTasksAndStartsNoOther) {
    const platform::HttpRequest request{"GET", subject->serve(200, "{}"), {}, {}};
    const auto end = std::make_shared<Ending>();
    const auto unsent = std::make_shared<Ending>();
    const auto early = task(request, unsent);
    task(request, end)->resume();
    session->finishTasksAndInvalidate();
    early->resume();
    task(request, unsent)->resume();
    ASSERT_TRUE(pumpUntil([&] { return end->calls > 0 && end.use_count() == 1; })) << "released";
    EXPECT_EQ(end->data, "{}");
    EXPECT_EQ(unsent->calls, 0);
    EXPECT_EQ(subject->received().size(), 1U);
}

} // namespace morvellacinto::contract
