#include "contract/Contracts.h"

#include "morvellacinto/foundation/Array.h"
#include "morvellacinto/foundation/Object.h"
#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/LocationService.h"
#include "morvellacinto/platform/UrlParser.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <gmock/gmock.h>

#include <atomic>
#include <iterator>
#include <set>
#include <span>
#include <sstream>
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
    std::istringstream good("https://audience.example/v5//audience/ https://[::1]:8443/ "
                            "http://127.0.0.1:8080/x?y=%C3%A5&z ftp://files.example/x "
                            "https://a.example/-._~:@!$&'()*+,;=?/?#/?%7C");
    for (std::string text; good >> text;) {
        EXPECT_EQ(platform.urlParser().parse(text), text);
    }
    std::istringstream bad("audience.example /v5/audience/ 5/audience/ https:// ://example "
                           "https://example:99999/ {\"a\":1}/audience/ http:/example/ http:example "
                           "http:///example/ https://example/%zz https://example/%4 "
                           "https://example/?% https://ex\xC3\xA5mple/ https://example/\xC3\xA5");
    std::vector<std::string> refused{std::istream_iterator<std::string>(bad), {}};
    refused.insert(refused.end(), {"", " ", "https://exa mple/"});
    for (const char character : "\"<>{}|\\^`\n\0"sv) {
        refused.push_back(std::string("https://example/a?b=") + character);
    }
    for (const std::string& text : refused) {
        EXPECT_EQ(platform.urlParser().parse(text), std::nullopt) << text;
    }
}

TEST_F(Contract, DefaultsKeepEveryKindUnderExactlyOneKeyAndRefuseWhatTheyCannotKeep) {
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
    defaults.setObjectForKey("other", "Key");
    defaults.removeObjectForKey("key");
    defaults.removeObjectForKey("key");
    EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
    for (const Value& refused : {Value(), Value(Object{{"a", Array::of({Object{{"b", nullptr}}})}}),
                                 Value(Array::of({makeInstance<Instance>()}))}) {
        EXPECT_THROW(defaults.setObjectForKey(refused, "Key"), std::invalid_argument);
    }
    EXPECT_EQ(defaults.objectForKey("Key"), Value("other"));
}

class LocationContract : public Contract, public platform::LocationServiceDelegate {
protected:
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

TEST_F(LocationContract, OneNotificationComesOnTheMainQueueForEachStartAndNoneAfterStopOrShutdown) {
    service->setDelegate(this);
    for (int round = 1; round <= 2; ++round) {
        service->startUpdatingLocation();
        service->startUpdatingLocation();
        EXPECT_EQ(count, round - 1) << "never inside the call";
        ASSERT_TRUE(pumpUntil([&] { return count == round; }));
    }
    service->startUpdatingLocation();
    service->stopUpdatingLocation();
    subject->settle();
    service->startUpdatingLocation();
    platform.shutdown();
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    EXPECT_GE(service->authorizationStatus(), platform::LocationAuthorization::notDetermined);
    subject->settle();
    EXPECT_EQ(count, 2);
    service->setDelegate(nullptr);
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

TEST_F(HttpContract, SendsARequestOnceItsHeadersWinningAndDeliversTheAnswerWhateverTheStatus) {
    platform::HttpSessionConfiguration configuration;
    configuration.additionalHeaders = {{"X-Session", "session"}, {"X-Both", "session"}};
    session = platform.makeHttpSession(configuration, nullptr);
    const std::string body("{\"zero\":\"\0\"}", 12);
    std::size_t count = 0;
    for (const int status : {200, 300, 401, 404, 407, 500}) {
        const std::string url = subject->serve({status, count > 0 ? body : ""});
        const auto end = ending({"POST", url, {{"X-Both", "own"}, {"X-Request", "own"}}, body});
        EXPECT_EQ(end->data, count > 0 ? body : "");
        ASSERT_TRUE(end->response.has_value());
        EXPECT_EQ(end->response->status, status);
        EXPECT_EQ(end->response->url, url);
        EXPECT_EQ(end->error, std::nullopt);
        const auto received = subject->received();
        ASSERT_EQ(received.size(), ++count) << "a second resume sends nothing";
        EXPECT_EQ(received.back().method, "POST");
        EXPECT_EQ(received.back().body, body);
        std::multiset<std::string> sent;
        for (const auto& [name, value] : received.back().headers) {
            sent.insert(name.starts_with("X-") ? name + ": " + value : "");
        }
        sent.erase("");
        EXPECT_THAT(sent,
                    ::testing::ElementsAre("X-Both: own", "X-Request: own", "X-Session: session"));
    }
}

TEST_F(HttpContract, AFailureIsAnErrorWithTheUrlAndASentence) {
    const std::string dead = subject->deadUrl();
    const platform::HttpRequest requests[] = {{"GET", dead, {}, {}},
                                              {"GET", std::nullopt, {}, {}, "5/audience/"}};
    for (const auto& request : requests) {
        const auto end = ending(request);
        EXPECT_EQ(end->response, std::nullopt);
        ASSERT_TRUE(end->error.has_value());
        EXPECT_FALSE(end->error->domain.empty());
        EXPECT_EQ(end->error->userInfo.at(KRError::urlKey), request.url.value_or("5/audience/"));
        const Value message = end->error->userInfo.at(KRError::messageKey);
        EXPECT_FALSE(message.asString().empty());
        EXPECT_TRUE(request.url || message == "The request has no valid URL: 5/audience/.");
    }
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
