#include "morvellacinto/transport/KRRequest.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/KRNetworkDelegate.h"
#include "morvellacinto/transport/RequestExecution.h"
#include "morvellacinto/transport/ServiceEndpoint.h"
#include "support/ScriptedPhoneTest.h"

#include <gmock/gmock.h>

#include <cmath>

namespace morvellacinto {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Uuid token = *Uuid::parse("0123abcd-0000-4000-8000-00000000ffff");
constexpr const char* url = "https://audience.invalid/v5/audience/";

class Request : public ScriptedPhoneTest {
protected:
    // Makes the request and tells what the callbacks were given: "success TEXT", "success nothing"
    // or "error CODE".
    std::vector<std::string> make(const KRRequest& request, bool withErrorCallback = true) {
        std::vector<std::string> calls;
        KRNetworkManager::ErrorCallback error;
        if (withErrorCallback) {
            error = [&](const KRError& failure) {
                EXPECT_FALSE(phone->dispatch().isMainThread());
                calls.push_back("error " + std::to_string(failure.code));
            };
        }
        KRNetworkManager::request(
            request,
            [&](std::optional<Value> answer) {
                EXPECT_FALSE(phone->dispatch().isMainThread());
                if (answer && answer->isObject()) {
                    answer->asObject().set("mine", true);
                }
                calls.push_back("success " + (answer ? writeJson(*answer) : "nothing"));
            },
            error);
        phone->settle();
        return calls;
    }

    static KRRequest post() {
        return KRRequest::requestWithType(KRRequestTypePost, url, Object{{"a", 1}}, token);
    }
};

TEST_F(Request, keepsWhatItWasGiven) {
    const auto bare = KRRequest::requestWithType(KRRequestTypeGet, url);
    EXPECT_EQ(bare.url(), url);
    EXPECT_FALSE(bare.params() || bare.payload() || bare.apiToken());
    const auto full = KRRequest::requestWithType(static_cast<KRRequestType>(7), "no url",
                                                 KRRequest::Params(Object{{"p", 1}}),
                                                 Array::of({1, "x"}), token);
    EXPECT_EQ(full.type(), 7);
    EXPECT_FALSE(full.url());
    EXPECT_EQ(full.params(), (Object{{"p", 1}}));
    EXPECT_EQ(full.payload(), "[1,\"x\"]");
    EXPECT_EQ(full.apiToken(), token);
    EXPECT_THROW(static_cast<void>(KRRequest::nativeToHttpData(Object{{"x", std::nan("")}})),
                 JsonWriteError);
}

TEST_F(Request, postsPayloadAndTokenWithinTenSeconds) {
    phone->http().plan({.status = 500, .body = "{}"});
    EXPECT_THAT(make(post()), ElementsAre(R"(success {"mine":true})"));
    ASSERT_EQ(phone->http().requests().size(), 1U);
    const auto sent = phone->http().requests().front();
    EXPECT_EQ(sent.request.method, "POST");
    EXPECT_EQ(sent.request.url, url);
    EXPECT_EQ(sent.request.body, R"({"a":1})");
    ASSERT_EQ(sent.request.headers.size(), 1U);
    EXPECT_EQ(sent.request.headers[0].name, "API_TOKEN");
    EXPECT_EQ(sent.request.headers[0].value, "0123ABCD-0000-4000-8000-00000000FFFF");
    ASSERT_EQ(sent.configuration.additionalHeaders.size(), 1U);
    EXPECT_EQ(sent.configuration.additionalHeaders[0].name, "Accept-Encoding");
    EXPECT_EQ(sent.configuration.additionalHeaders[0].value, "gzip");
    EXPECT_EQ(sent.configuration.resourceTimeout, std::chrono::seconds(10));
    EXPECT_TRUE(sent.configuration.shouldUsePipelining);
    EXPECT_EQ(sent.invalidationCount, 1);
}

TEST_F(Request, postsTheFallbackBodyAndNoTokenWithoutThem) {
    make(KRRequest::requestWithType(KRRequestTypePost, url));
    const auto sent = phone->http().requests().at(0).request;
    EXPECT_EQ(sent.body, R"({"bundle": "se.kovra.no-bundle"})");
    EXPECT_THAT(sent.headers, IsEmpty());
}

TEST_F(Request, getsWithoutTokenAndBody) {
    make(KRRequest::requestWithType(KRRequestTypeGet, url, Object{{"a", 1}}, token));
    const auto sent = phone->http().requests().at(0).request;
    EXPECT_EQ(sent.method, "GET");
    EXPECT_EQ(sent.body, std::nullopt);
    EXPECT_THAT(sent.headers, IsEmpty());
}

TEST_F(Request, makesNoTransferForAnotherType) {
    EXPECT_THAT(make(KRRequest::requestWithType(static_cast<KRRequestType>(2), url)), IsEmpty());
    EXPECT_THAT(phone->http().requests(), IsEmpty());
}

TEST_F(Request, givesSuccessNothingForABodyThatIsNoJson) {
    for (const char* body : {"", "text", "1", "\"x\"", "null", "{"}) {
        phone->http().plan({.body = body});
        EXPECT_THAT(make(post()), ElementsAre("success nothing")) << body;
    }
}

TEST_F(Request, givesFailuresToTheErrorCallbackAndElseNothingToSuccess) {
    const KRError failure{"some.domain", -7, {}};
    phone->http().plan({.body = "{}", .error = failure});
    EXPECT_THAT(make(post()), ElementsAre("error -7"));
    phone->http().plan({.body = "{}", .error = failure});
    EXPECT_THAT(make(post(), false), ElementsAre("success nothing"));
}

TEST_F(Request, failsWithoutAUrl) {
    EXPECT_THAT(make(KRRequest::requestWithType(KRRequestTypePost, "5/audience/")),
                ElementsAre(::testing::StartsWith("error ")));
}

TEST(NetworkDelegate, answersEveryChallengeWithDefaultHandling) {
    class NoTask : public platform::HttpTask {
        void resume() override {}
    } task;
    class NoSession : public platform::HttpSession {
        std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest, Completion) override {
            return nullptr;
        }
        void finishTasksAndInvalidate() override {}
    } session;
    for (const char* method : {"serverTrust", "basic", "clientCertificate"}) {
        int answers = 0;
        KRNetworkDelegate::shared().didReceiveChallenge(
            session, task, {method, "host", 3},
            [&answers](platform::HttpChallengeDisposition disposition, const auto& credential) {
                ++answers;
                EXPECT_EQ(static_cast<int>(disposition), 1);
                EXPECT_FALSE(credential.has_value());
            });
        EXPECT_EQ(answers, 1);
        KRNetworkDelegate::shared().didReceiveChallenge(session, task, {method, "host", 0}, {});
    }
}

TEST_F(Request, goesToTheBaseUrlThatIsStoredWhateverItIs) {
    EXPECT_EQ(KRNetworkManager::baseURL(), Value(API_URL_PROD));
    EXPECT_TRUE(API_URL_PROD.starts_with("https://") && API_URL_PROD.ends_with("/v5"));
    for (const Value& stored : {Value(""), Value("https://b.invalid/v5"), Value(5)}) {
        ASSERT_TRUE(KRSettingsManager::setLocalSetting(stored, "KRServiceURL"));
        EXPECT_EQ(KRNetworkManager::baseURL(), stored);
    }
    EXPECT_EQ(KRNetworkManager::fallbackBaseURL(), API_URL_PROD);
    EXPECT_THAT(phone->takeLog(),
                ElementsAre("Fallback KRServiceURL " + std::string(API_URL_PROD)));
    EXPECT_EQ(KRNetworkManager::apiVersion(), "3.0.7");
}

} // namespace
} // namespace morvellacinto
