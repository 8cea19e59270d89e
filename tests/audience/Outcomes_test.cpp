#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/KRRequest.h"
#include "morvellacinto/transport/RequestExecution.h"
#include "support/ScriptedPhoneTest.h"

#include "morvellacinto/audience/KRAudienceManager.h"

#include <cmath>

namespace morvellacinto {
namespace {

using KRSettingsManager::setLocalSetting;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Outcomes : public ScriptedPhoneTest {
protected:
    void collect(Object payload = {{"lat", 59.3}}) {
        manager.collect(payload, [this](const auto& answer, const auto& error) {
            calls.push_back(answer ? "answer" : error->domain);
        });
    }
    void fetch() {
        manager.kovraTagsWithCompletion([](const auto&, const auto&) {});
    }

    KRAudienceManager manager{Uuid::parse("0123ABCD-0000-4000-8000-00000000FFFF")};
    std::vector<std::string> calls;
};

TEST_F(Outcomes, areToldWithTheirReasonWhenNobodyElseHearsOfThem) {
    const KRError lost{"net", -7, {{"message", "The network is down."}}};
    const std::string badUrl{scripted::ScriptedHttp::errorDomain};
    const struct {
        std::function<void()> begin;
        const char* told;
        std::string heard = {}; // by the completion
        const char* logged = "";
    } cases[] = {
        {[&] { phone->http().plan({.status = 502, .body = "<html>"}), collect(); },
         "the answer with status 502 and 6 bytes is no JSON, not an object; it is dropped and its "
         "completion not called"},
        {[&] { phone->http().plan({.body = "[1]"}), collect(); },
         "the answer with status 200 and 3 bytes is an array, not an object; it is dropped and its "
         "completion not called"},
        {[&] {
             collect({{"lat", std::nan("")}});
         },
         "tags failed: JSON cannot hold not-a-number, found at or below the member \"lat\"", "",
         "tags failed"},
        {[&] { setLocalSetting("b.invalid/v5?key=1", "KRServiceURL"), collect(); },
         "the base URL is no URL but \"b.invalid/v5\"", badUrl},
        {[&] { setLocalSetting(Date{5}, "KRServiceURL"), collect(); },
         "the base URL is no URL but a date", badUrl},
        {[&] {
             setLocalSetting("https://a.invalid", "KRServiceURL");
             phone->http().plan({.error = lost}), manager.collect({}, nullptr);
         },
         "nobody hears of the error of an upload without a completion: net -7: The network is "
         "down."},
        {[&] {
             phone->http().plan({.error = lost});
             KRNetworkManager::request(
                 KRRequest::requestWithType(KRRequestTypeGet, "https://a.invalid"), nullptr,
                 nullptr);
         },
         "nobody hears of the error of a request without an error callback: net -7: The network is "
         "down."},
        {[&] {
             KRNetworkManager::request(
                 KRRequest::requestWithType(static_cast<KRRequestType>(7), ""), nullptr, nullptr);
         },
         "a request of type 7 makes no transfer; neither of its callbacks is called"},
        {[&] { fetch(), fetch(); }, "the callback that waited for a location under "
                                    "\"se.kovra.geotag\" is superseded by a later "
                                    "one and not called"},
        {[&] {
             phone->locationServices().fail({"gps", 1, {}}), phone->http().plan({.body = "{}"});
         },
         "nobody hears of the error of a location; zeros are uploaded: gps 1"},
        {[&] {
             KRLocationManager::shared().addLocationUpdateBlock(
                 [](const auto&, const auto&) { throw 7; }, "mine");
             phone->locationServices().deliver({{59.3, 18.1, 0, 0}});
         },
         "location update failed: something that is no std::exception was thrown", "",
         "location update failed"},
        {[&] {
             setLocalSetting(phone->clock().now(), "KRAudienceUpdate");
             setLocalSetting(Array(), "KRAudiences"), collect();
         },
         "the cached answer is an array, not an object; the completion is not called"},
    };
    for (const auto& [begin, told, heard, logged] : cases) {
        begin();
        phone->settle();
        std::vector<std::string> sentences;
        for (const platform::Diagnostic& record : phone->diagnostics()->takeRecords()) {
            sentences.push_back(sentenceOf(record));
        }
        EXPECT_THAT(sentences, ElementsAre(told));
        EXPECT_EQ(calls, heard.empty() ? std::vector<std::string>() : std::vector{heard}) << told;
        calls.clear();
        std::string log;
        for (const std::string& line : phone->takeLog()) {
            log += line;
        }
        EXPECT_EQ(log, logged) << told;
    }
}

TEST(Diagnostics, areNotMadeWhenNobodyListens) {
    bool isMade = false;
    platform::tellDiagnostics([&] {
        isMade = true;
        return platform::RequestNotMade{};
    });
    EXPECT_FALSE(isMade);
}

// For the error to name.
TEST_F(Outcomes, showTextThatIsNoUrlWithoutUserQueryAndFragment) {
    const struct {
        const char* text;
        const char* shown;
    } cases[] = {
        {"a.invalid/p", "a.invalid/p"},
        {"//a.invalid/p?token=1#x", "//a.invalid/p"},
        {"//us er:pass@a.invalid/p", "//a.invalid/p"},
        {"//us/er:p@ss@a.invalid", "//a.invalid"},
        {"user:pa?ss@a.invalid", ""},
        {"a\xFF\xC3\xA4", "a?\xC3\xA4"},
    };
    for (const auto& [text, shown] : cases) {
        KRNetworkManager::request(KRRequest::requestWithType(KRRequestTypeGet, text), nullptr,
                                  nullptr);
        EXPECT_EQ(phone->http().requests().back().request.refusedUrl, shown) << text;
    }
    phone->settle();
}

} // namespace
} // namespace morvellacinto
