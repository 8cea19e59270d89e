#include "morvellacinto/audience/KRAudienceManager.h"
#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/KRRequest.h"
#include "morvellacinto/transport/RequestExecution.h"
#include "support/ScriptedPhoneTest.h"

#include <cmath>

namespace morvellacinto {
namespace {

using KRSettingsManager::setLocalSetting;

class Outcomes : public ScriptedPhoneTest {
protected:
    void collect(Object payload = {}) {
        manager.collect(payload, [this](const auto& answer, const auto& error) {
            heard += answer ? "answer" : error->domain;
        });
    }
    static void request(KRRequestType type, const char* url) {
        KRNetworkManager::request(KRRequest::requestWithType(type, url), nullptr, nullptr);
    }

    KRAudienceManager manager{std::nullopt};
    std::string heard;
};

TEST_F(Outcomes, areToldWithTheirReasonWhenNobodyElseHearsOfThem) {
    const auto plan = [this](scripted::HttpAnswer answer) {
        phone->http().plan(std::move(answer));
    };
    const KRError lost{"net", -7, {{"message", "No network."}}};
    const std::string badUrl{scripted::ScriptedHttp::errorDomain};
    const struct {
        std::function<void()> begin;
        const char* told;
        std::string heard = "";
        std::vector<std::string> logged = {};
    } cases[] = {
        {[&] { plan({.status = 502, .body = "<html>"}), collect(); },
         "the answer with status 502 and 6 bytes is no JSON, not an object; its completion is not "
         "called"},
        {[&] {
             collect({{"lat", std::nan("")}});
         },
         "tags failed: JSON cannot hold not-a-number, found at or below the member \"lat\"",
         "",
         {"tags failed"}},
        {[&] { setLocalSetting("b.invalid/v5?key=1", "KRServiceURL"), collect(); },
         "the base URL is no URL but \"b.invalid/v5\"", badUrl},
        {[&] { setLocalSetting(Date{5}, "KRServiceURL"), collect(); },
         "the base URL is no URL but a date", badUrl},
        {[&] {
             setLocalSetting("https://a.invalid", "KRServiceURL");
             plan({.error = lost}), manager.collect({}, nullptr);
         },
         "nobody hears of the error of an upload without a completion: net -7: No network."},
        {[&] { request(static_cast<KRRequestType>(7), ""); },
         "a request of type 7 makes no transfer; neither of its callbacks is called"},
        {[&] { manager.kovraTagsWithCompletion({}), manager.kovraTagsWithCompletion({}); },
         "the callback that waited for a location under \"se.kovra.geotag\" is superseded by a "
         "later "
         "one and not called"},
        {[&] {
             plan({.body = "{}"}), phone->locationServices().fail({"gps", 1, {}});
         },
         "nobody hears of the error of a location; zeros are uploaded: gps 1"},
        {[&] {
             KRLocationManager::shared().addLocationUpdateBlock(
                 [](const auto&, const auto&) { throw 7; }, "mine");
             phone->locationServices().deliver({{59.3, 18.1, 0, 0}});
         },
         "location update failed: something that is no std::exception was thrown",
         "",
         {"location update failed"}},
        {[&] {
             setLocalSetting(phone->clock().now(), "KRAudienceUpdate");
             setLocalSetting(Array(), "KRAudiences"), collect();
         },
         "the cached answer is an array, not an object; its completion is not called"},
    };
    for (const auto& expected : cases) {
        expected.begin();
        phone->settle();
        std::vector<std::string> told;
        for (const platform::Diagnostic& record : phone->diagnostics()->takeRecords()) {
            told.push_back(sentenceOf(record));
        }
        EXPECT_THAT(told, ::testing::ElementsAre(expected.told));
        EXPECT_EQ(std::exchange(heard, ""), expected.heard) << expected.told;
        EXPECT_EQ(phone->takeLog(), expected.logged) << expected.told;
    }
}

TEST_F(Outcomes, nameTextThatIsNoUrlWithoutUserQueryAndFragment) {
    const struct {
        const char* text;
        const char* named;
    } cases[] = {
        {"//a.invalid/p?token=1#x", "//a.invalid/p"},
        {"//us/er:p@ss@a.invalid/p", "a.invalid/p"},
        {"user:pa?ss@a.invalid", ""},
    };
    for (const auto& [text, named] : cases) {
        request(KRRequestTypeGet, text);
        EXPECT_EQ(phone->http().requests().back().request.refusedUrl, named) << text;
    }
    phone->settle();
}

} // namespace
} // namespace morvellacinto
