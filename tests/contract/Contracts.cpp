#include "contract/Contracts.h"

#include "morvellacinto/foundation/Array.h"
#include "morvellacinto/foundation/Object.h"
#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/LocationService.h"
#include "morvellacinto/platform/Tracking.h"
#include "morvellacinto/platform/UrlParser.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <gmock/gmock.h>

#include <atomic>
#include <span>
#include <stdexcept>

namespace morvellacinto::contract {
namespace {

using namespace std::string_view_literals;

class Contract : public ::testing::Test {
protected:
    [[nodiscard]] bool pumpUntil(const std::function<bool()>& done) {
        return subject->pumpUntil(done);
    }

    const std::unique_ptr<Subject> subject = makeSubject();
    platform::Platform& platform = subject->platform();
};

TEST_F(Contract, MainBlocksRunInOrderOnTheMainThreadAndNeverInsideTheCall) {
    platform::Dispatch& dispatch = platform.dispatch();
    std::vector<int> order;
    for (int i = 0; i < 3; ++i) {
        dispatch.asyncMain([&, i] {
            EXPECT_TRUE(dispatch.isMainThread());
            order.push_back(i);
            dispatch.asyncMain([&, i] { order.push_back(10 + i); });
            EXPECT_LE(order.size(), 3U);
        });
    }
    EXPECT_TRUE(order.empty());
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 6; }));
    EXPECT_EQ(order, (std::vector{0, 1, 2, 10, 11, 12}));
}

TEST_F(Contract, GlobalBlocksRunOffTheMainThreadAndTheirExceptionsSurfaceOnIt) {
    platform::Dispatch& dispatch = platform.dispatch();
    bool arrived = false;
    dispatch.asyncGlobal([&] {
        EXPECT_FALSE(dispatch.isMainThread());
        dispatch.asyncMain([&] { arrived = true; });
    });
    EXPECT_FALSE(arrived);
    EXPECT_TRUE(pumpUntil([&] { return arrived; }));
    dispatch.asyncGlobal([] { throw std::range_error("from a global block"); });
    EXPECT_THROW((void)pumpUntil([] { return false; }), std::range_error);
}

TEST_F(Contract, ShutdownDestroysWaitingBlocksAndDropsLaterOnes) {
    platform::Dispatch& dispatch = platform.dispatch();
    const auto captured = std::make_shared<int>();
    dispatch.asyncMain([captured] { ADD_FAILURE(); });
    platform.shutdown();
    dispatch.asyncMain([captured] { ADD_FAILURE(); });
    dispatch.asyncGlobal([captured] { ADD_FAILURE(); });
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(Contract, ATrackingRequestIsAnsweredOnceWithAStatusThatHoldsFromThenOn) {
    platform::Tracking& tracking = platform.tracking();
    std::atomic<int> answers = 0;
    tracking.requestTrackingAuthorization([&](std::uint64_t status) {
        EXPECT_NE(status, 0U);
        EXPECT_EQ(status, tracking.trackingAuthorizationStatus());
        ++answers;
    });
    ASSERT_TRUE(pumpUntil([&] { return answers > 0; }));
    subject->settle();
    EXPECT_EQ(answers, 1);
}

TEST_F(Contract, AFailedAssertionThrows) {
    EXPECT_THROW(platform.assertionHandler().handleFailureInFunction("f", "file", 1, "text"),
                 platform::AssertionFailure);
}

TEST_F(Contract, AUrlIsAbsoluteOrNothing) {
    for (const auto text :
         {"https://audience.example/v5//audience/"sv, "http://127.0.0.1:8080/x?y=%C3%A5&z"sv,
          "https://[::1]:8443/"sv, "https://a.example/-._~:@!$&'()*+,;=?/?#/?%7C"sv,
          "ftp://files.example/x"sv}) {
        EXPECT_EQ(platform.urlParser().parse(text), text);
    }
    for (const auto text : {""sv,
                            " "sv,
                            "audience.example"sv,
                            "/v5/audience/"sv,
                            "5/audience/"sv,
                            "https://"sv,
                            "https://exa mple/"sv,
                            "https://example/\0"sv,
                            "https://example/\n"sv,
                            "://example"sv,
                            "https://example:99999/"sv,
                            "{\"a\":1}/audience/"sv,
                            "http:/example/"sv,
                            "http:///example/"sv,
                            "http:example"sv,
                            "https://example/%zz"sv,
                            "https://example/%4"sv,
                            "https://example/?%"sv,
                            "https://ex\xC3\xA5mple/"sv,
                            "https://example/\xC3\xA5"sv}) {
        EXPECT_EQ(platform.urlParser().parse(text), std::nullopt) << text;
    }
    for (const char refused : "\"<>{}|\\^`"sv) {
        const std::string text = std::string("https://example/a?b=") + refused;
        EXPECT_EQ(platform.urlParser().parse(text), std::nullopt) << text;
    }
}

TEST_F(Contract, EveryKindOfValueComesBackWithItsKind) {
    platform::UserDefaults& defaults = platform.standardUserDefaults();
    const std::byte bytes[] = {std::byte{0}, std::byte{255}};
    const Value values[] = {
        true,
        INT64_MIN,
        UINT64_MAX,
        59.329F,
        0.1,
        "",
        "å\0b"sv,
        std::string(100'000, 'x'),
        Date{1'700'000'000.123456},
        Value(std::span(bytes)),
        Array(),
        Object{{"z", Array::of({1, Object{{"deep", Date{0.5}}}})}, {"a", false}}};
    for (const Value& value : values) {
        defaults.setObjectForKey(value, "key");
        EXPECT_TRUE(defaults.synchronize());
        ASSERT_EQ(defaults.objectForKey("key"), value);
        EXPECT_EQ(defaults.objectForKey("key")->kind(), value.kind());
    }
    EXPECT_EQ(defaults.objectForKey("key")->asObject().begin()->key(), "z") << "members in order";
}

TEST_F(Contract, DefaultsSetReplaceAndRemoveUnderExactlyOneKeyAndRefuseWhatTheyCannotKeep) {
    platform::UserDefaults& defaults = platform.standardUserDefaults();
    defaults.removeObjectForKey("key");
    defaults.setObjectForKey("first", "key");
    defaults.setObjectForKey("other", "Key");
    defaults.setObjectForKey(2, "key");
    EXPECT_EQ(defaults.objectForKey("key"), Value(2));
    defaults.removeObjectForKey("key");
    EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
    const Value refused[] = {nullptr, Object{{"a", Array::of({Object{{"b", nullptr}}})}},
                             Array::of({makeInstance<Instance>()})};
    for (const Value& value : refused) {
        EXPECT_THROW(defaults.setObjectForKey(value, "Key"), std::invalid_argument);
    }
    EXPECT_EQ(defaults.objectForKey("Key"), Value("other"));
}

class LocationContract : public Contract, public platform::LocationServiceDelegate {
protected:
    LocationContract() { service->setDelegate(this); }
    ~LocationContract() override { service->setDelegate(nullptr); }

    void locationManagerDidChangeAuthorization(platform::LocationService&) override {}
    // Which of the two comes is the device's business.
    void didUpdateLocations(platform::LocationService&,
                            const std::vector<platform::LocationFix>&) override {
        notice();
    }
    void didFailWithError(platform::LocationService&, const KRError&) override { notice(); }
    void notice() {
        EXPECT_TRUE(platform.dispatch().isMainThread());
        ++count;
        service->stopUpdatingLocation();
    }

    const std::shared_ptr<platform::LocationService> service =
        platform.locationServices().makeService();
    int count = 0;
};

TEST_F(LocationContract, AFixOrAFailureComesOnTheMainQueueOnceForEachStartAndNoneAfterStopping) {
    for (int round = 1; round <= 2; ++round) {
        service->startUpdatingLocation();
        service->startUpdatingLocation();
        EXPECT_EQ(count, round - 1) << "never inside the call";
        ASSERT_TRUE(pumpUntil([&] { return count == round; }));
    }
    service->startUpdatingLocation();
    service->stopUpdatingLocation();
    subject->settle();
    EXPECT_EQ(count, 2);
}

TEST_F(LocationContract, AClientAnswersAlsoAfterShutdownAndNotifiesNobodyThen) {
    service->startUpdatingLocation();
    platform.shutdown();
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    EXPECT_GE(service->authorizationStatus(), platform::LocationAuthorization::notDetermined);
    subject->settle();
    EXPECT_EQ(count, 0);
}

class HttpContract : public Contract {
protected:
    struct Ending {
        std::optional<std::string> data;
        std::optional<platform::HttpResponse> response;
        std::optional<KRError> error;
        std::atomic<int> calls = 0; ///< raised last
    };
    using Sent = std::pair<std::shared_ptr<platform::HttpTask>, std::shared_ptr<Ending>>;

    /// The task holds the ending as long as it holds its completion.
    Sent task(platform::HttpRequest request) {
        auto ending = std::make_shared<Ending>();
        return {session->dataTask(std::move(request),
                                  [this, ending](auto data, auto response, auto error) {
                                      EXPECT_FALSE(platform.dispatch().isMainThread());
                                      ending->data = std::move(data);
                                      ending->response = std::move(response);
                                      ending->error = std::move(error);
                                      ++ending->calls;
                                  }),
                ending};
    }
    std::shared_ptr<Ending> ending(platform::HttpRequest request) {
        const Sent sent = task(std::move(request));
        sent.first->resume();
        sent.first->resume();
        EXPECT_TRUE(pumpUntil([&] { return sent.second->calls > 0; }));
        return sent.second;
    }

    std::shared_ptr<platform::HttpSession> session = platform.makeHttpSession({}, nullptr);
};

TEST_F(HttpContract, DeliversBodyAndResponseOnceWhateverTheStatus) {
    const Answer answers[] = {
        {200, "{\"tags\":[]}"},      {300, "a"}, {401, "b"}, {404, ""}, {407, "c"},
        {500, std::string("\0x", 2)}};
    for (const Answer& answer : answers) {
        const std::string url = subject->serve(answer);
        const auto end = ending({"GET", url, {}, {}});
        EXPECT_EQ(end->data, answer.body);
        ASSERT_TRUE(end->response.has_value());
        EXPECT_EQ(end->response->status, answer.status);
        EXPECT_EQ(end->response->url, url);
        EXPECT_EQ(end->error, std::nullopt);
    }
    EXPECT_EQ(subject->received().size(), std::size(answers)) << "a second resume sends nothing";
}

TEST_F(HttpContract, SendsMethodBodyAndHeadersARequestsOwnWinning) {
    platform::HttpSessionConfiguration configuration;
    configuration.additionalHeaders = {{"X-Session", "session"}, {"X-Both", "session"}};
    session = platform.makeHttpSession(configuration, nullptr);
    const std::string body("{\"zero\":\"\0\"}", 12);
    ending({"POST", subject->serve({}), {{"X-Both", "own"}, {"X-Request", "own"}}, body});
    const auto received = subject->received();
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].body, body);
    std::vector<std::string> sent;
    for (const auto& [name, value] : received[0].headers) {
        if (name.starts_with("X-")) {
            sent.push_back(std::string(name).append(": ").append(value));
        }
    }
    EXPECT_THAT(sent, ::testing::UnorderedElementsAre("X-Both: own", "X-Request: own",
                                                      "X-Session: session"));
}

TEST_F(HttpContract, AFailureIsAnErrorWithTheUrlAndASentence) {
    const std::string dead = subject->deadUrl();
    for (const auto& url : {std::optional(dead), std::optional<std::string>()}) {
        const auto end = ending({"GET", url, {}, {}});
        EXPECT_EQ(end->response, std::nullopt);
        ASSERT_TRUE(end->error.has_value());
        EXPECT_FALSE(end->error->domain.empty());
        EXPECT_FALSE(end->error->userInfo.at(KRError::messageKey).asString().empty());
        EXPECT_TRUE(!url || end->error->userInfo.at(KRError::urlKey) == Value(*url));
    }
    const auto refused = ending({"GET", std::nullopt, {}, {}, "5/audience/"})->error->userInfo;
    EXPECT_EQ(refused.at(KRError::urlKey), "5/audience/");
    EXPECT_EQ(refused.at(KRError::messageKey), "The request has no valid URL: 5/audience/.");
}

TEST_F(HttpContract, AnInvalidatedSessionFinishesStartedTasksAndStartsNoOther) {
    const std::string url = subject->serve({200, "{}"});
    const auto [started, end] = task({"GET", url, {}, {}});
    const auto [early, earlyEnd] = task({"GET", url, {}, {}});
    started->resume();
    session->finishTasksAndInvalidate();
    early->resume();
    const auto [late, lateEnd] = task({"GET", url, {}, {}});
    late->resume();
    ASSERT_TRUE(pumpUntil([&kept = end] { return kept->calls > 0 && kept.use_count() == 1; }))
        << "released";
    EXPECT_EQ(end->data, "{}");
    EXPECT_EQ(earlyEnd->calls + lateEnd->calls, 0);
    EXPECT_EQ(subject->received().size(), 1U);
}

} // namespace
} // namespace morvellacinto::contract
