// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/KRAudienceManager.h"
#include "morvellacinto/foundation/Json.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

TEST(Journal, TellsEachStepOfAnUploadWithoutWhatIsPrivate) {
    scripted::PhoneScript script;
    script.trackingAuthorization = platform::TrackingAuthorization::notDetermined;
    script.location.delay = 0s;
    const auto phone = scripted::ScriptedPhone::create(std::move(script));
    phone->diagnostics()->keepRoutine();
    platform::install(phone);
    const auto events = [&] {
        phone->settle();
        std::vector<std::string> texts;
        for (const platform::Diagnostic& record : phone->diagnostics()->takeRecords()) {
            texts.push_back(writeJson(objectOf(record)));
        }
        return texts;
    };
    KRAudienceManager manager(Uuid(), 2);
    phone->http().plan({.body = R"({"serviceurl":"https://u:p@other.invalid/v5?key=1"})"});
    manager.setRequestTrackingAuthorization(true);
    manager.kovraTagsWithCompletion([](const auto&, const auto&) {});
    std::vector<std::string> all = events();
    const auto upload = std::find_if(all.begin(), all.end(), [](const std::string& event) {
        return event.find("uploadBegun") != std::string::npos;
    });
    ASSERT_NE(upload, all.end());
    EXPECT_THAT(*upload, ::testing::HasSubstr(R"("lat":5,"lon":5,"speed":4,"course":5},)"));
    EXPECT_THAT(*upload, ::testing::Not(::testing::HasSubstr("59.3")));
    all.erase(upload);
    EXPECT_THAT(all, ElementsAre(R"({"event":"permissionAsked"})", R"({"event":"locationAsked"})",
                                 R"({"event":"permissionAnswered","status":3})",
                                 R"({"event":"locationCome","decimals":2})",
                                 R"({"event":"locationAsked"})",
                                 R"({"event":"answerCome","status":200,"size":51})",
                                 R"({"event":"baseUrlMoved","to":"other.invalid/v5"})",
                                 R"({"event":"answerCached","durable":true})",
                                 R"({"event":"locationCome","decimals":2})",
                                 R"({"event":"cacheServed","age":0})"));

    phone->http().plan({.error = KRError{"net", -7, {}}});
    manager.collect({{"x", "yy"}}, nullptr, true);
    EXPECT_THAT(events(),
                ElementsAre(R"({"event":"uploadBegun","fields":{"x":4},"forced":true})",
                            R"({"event":"requestFailed","domain":"net","code":-7})",
                            R"({"event":"errorUnheard","of":"an upload without a completion",)"
                            R"("domain":"net","code":-7})"));
    platform::shutdown();
}

} // namespace
} // namespace morvellacinto
