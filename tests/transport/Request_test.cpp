// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/KRNetworkDelegate.h"
#include "morvellacinto/transport/KRRequest.h"
#include "morvellacinto/transport/RequestExecution.h"
#include "morvellacinto/transport/ServiceEndpoint.h"
#include "support/ScriptedPhoneTest.h"

#include <cmath>

namespace morvellacinto {

const Uuid token = *Uuid::parse("0123abcd-0000-4000-8000-00000000ffff");
constexpr const char* url = "https://audience.invalid/v5/audience/";

struct Request : ScriptedPhoneTest {
    /// What the callbacks were given: "success TEXT", "success nothing" or "error CODE".
    Texts make(const KRRequest& request, bool withErrorCallback = true) {
        Texts calls;
        const auto note = [&](std::string call) {
            EXPECT_FALSE(phone->dispatch().isMainThread());
            calls.push_back(std::move(call));
        };
        KRNetworkManager::ErrorCallback error;
        if (withErrorCallback) {
            error = [&](const KRError& failure) { note("error " + std::to_string(failure.code)); };
        }
        KRNetworkManager::request(
            request,
            [&](const std::optional<Value>& answer) {
                note("success " + (answer ? writeJson(*answer) : "nothing"));
            },
            error);
        phone->settle();
        return calls;
    }
    Texts post(const scripted::HttpAnswer& answer, bool withErrorCallback = true) {
        phone->http().plan(answer);
        return make(KRRequest::requestWithType(KRRequestTypePost, url, Object{{"a", 1}}, token),
                    withErrorCallback);
    }
};

TEST_F(Request, KeepsWhatItWasGiven) {
    const auto full =
        KRRequest::requestWithType(static_cast<KRRequestType>(7), url,
                                   KRRequest::Params(Object{{"p", 1}}), Array::of({1, "x"}), token);
    EXPECT_EQ(full.params(), (Object{{"p", 1}}));
    EXPECT_EQ(full.payload(), "[1,\"x\"]");
    EXPECT_THAT(make(full), IsEmpty());
    EXPECT_EQ(told(), Texts{"a request of type 7 makes no transfer; neither of its callbacks is "
                            "called"});
    EXPECT_EQ(KRRequest::nativeToHttpData(nullptr), std::nullopt);
    EXPECT_THROW(static_cast<void>(KRRequest::nativeToHttpData(Object{{"x", std::nan("")}})),
                 JsonWriteError);
}

TEST_F(Request, NamesTextThatIsNoUrlWithoutUserQueryAndFragment) {
    const std::pair<const char*, const char*> cases[] = {
        {"//a.invalid/p?token=1#x", "//a.invalid/p"},
        {"//a.invalid/#x", "//a.invalid/"},
        {"//us/er:p@ss@a.invalid/p", "a.invalid/p"},
        {"user:pa?ss@a.invalid", ""}};
    for (const auto& [text, named] : cases) {
        EXPECT_THAT(make(KRRequest::requestWithType(KRRequestTypePost, text)),
                    ElementsAre("error 2"));
        EXPECT_EQ(phone->http().requests().back().request.url, std::nullopt) << text;
        EXPECT_EQ(phone->http().requests().back().request.refusedUrl, named) << text;
    }
}

TEST_F(Request, PostsPayloadAndTokenWithinTenSecondsWhateverTheStatus) {
    EXPECT_THAT(post({.status = 500, .body = "{}"}), ElementsAre("success {}"));
    ASSERT_EQ(phone->http().requests().size(), 1U);
    const auto sent = phone->http().requests().front();
    EXPECT_EQ(sent.request.method, "POST");
    EXPECT_EQ(sent.request.url, url);
    EXPECT_EQ(sent.request.body, R"({"a":1})");
    Texts headers;
    for (const auto& [name, value] : sent.sentHeaders()) {
        headers.push_back(name + ": " + value);
    }
    EXPECT_THAT(headers, ElementsAre("API_TOKEN: 0123ABCD-0000-4000-8000-00000000FFFF",
                                     "Accept-Encoding: gzip"));
    EXPECT_EQ(sent.configuration.resourceTimeout, 10s);
    EXPECT_TRUE(sent.configuration.shouldUsePipelining);
    EXPECT_TRUE(sent.hasDelegate);
    EXPECT_EQ(sent.invalidationCount, 1);
}

TEST_F(Request, SendsTheFallbackBodyByPostAndNothingByGet) {
    make(KRRequest::requestWithType(KRRequestTypePost, url));
    make(KRRequest::requestWithType(KRRequestTypeGet, url, Object{{"a", 1}}, token));
    const auto sent = phone->http().requests();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].request.body, R"({"bundle": "se.kovra.no-bundle"})");
    EXPECT_THAT(sent[0].request.headers, IsEmpty());
    EXPECT_EQ(sent[1].request.method, "GET");
    EXPECT_EQ(sent[1].request.body, std::nullopt);
    EXPECT_THAT(sent[1].request.headers, IsEmpty());
}

TEST_F(Request, GivesSuccessNothingForABodyThatIsNoJsonAndForAFailureThatNobodyWants) {
    EXPECT_THAT(post({.body = "text"}), ElementsAre("success nothing"));
    const scripted::HttpAnswer failure{.body = "{}", .error = KRError{"some.domain", -7, {}}};
    EXPECT_THAT(post(failure), ElementsAre("error -7"));
    EXPECT_THAT(post(failure, false), ElementsAre("success nothing"));
    EXPECT_EQ(told(), Texts{"nobody hears of the error of a request without an error callback: "
                            "some.domain -7"});
}

TEST_F(Request, LeavesEveryChallengeToDefaultHandling) {
    phone->http().setChallenges({{"serverTrust", "", 0}, {"basic", "other.invalid", 3}});
    EXPECT_THAT(post({.body = "{}"}), ElementsAre("success {}"));
    const auto session = phone->makeHttpSession({}, nullptr);
    const auto task = session->dataTask({}, nullptr);
    KRNetworkDelegate::shared().didReceiveChallenge(*session, *task, {}, {});
}

TEST_F(Request, GoesToTheBaseUrlThatIsStoredWhateverItIs) {
    EXPECT_EQ(KRNetworkManager::baseURL(), Value(API_URL_PROD));
    EXPECT_TRUE(API_URL_PROD.starts_with("https://") && API_URL_PROD.ends_with("/v5"));
    for (const Value& stored : {Value(""), Value(5)}) {
        ASSERT_TRUE(KRSettingsManager::setLocalSetting(stored, "KRServiceURL"));
        EXPECT_EQ(KRNetworkManager::baseURL(), stored);
    }
    EXPECT_EQ(KRNetworkManager::fallbackBaseURL(), API_URL_PROD);
    expectLog({"Fallback KRServiceURL " + std::string(API_URL_PROD)});
    EXPECT_EQ(KRNetworkManager::apiVersion(), "3.0.7");
}

} // namespace morvellacinto
