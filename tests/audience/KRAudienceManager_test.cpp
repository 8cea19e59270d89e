#include "morvellacinto/audience/KRAudienceManager.h"

#include "morvellacinto/audience/RoundToN.h"
#include "morvellacinto/audience/Version.h"
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/ServiceEndpoint.h"
#include "support/ScriptedPhoneTest.h"

#include <cmath>
#include <fstream>
#include <thread>

namespace morvellacinto {
namespace {

const Uuid token = *Uuid::parse("0123ABCD-0000-4000-8000-00000000FFFF");

class Audience : public ScriptedPhoneTest {
protected:
    KRAudienceManager::Completion record(const std::string& name = {}) {
        return [this, name](const auto& answer, const auto& error) {
            EXPECT_TRUE(phone->dispatch().isMainThread());
            EXPECT_NE(answer.has_value(), error.has_value());
            calls.push_back(name + (answer ? writeJson(*answer) : error->domain));
        };
    }
    std::vector<std::string> settled() {
        phone->settle();
        return std::exchange(calls, {});
    }
    std::vector<std::string> collect(bool force = false) {
        Object payload{{"vendorId", "v"}, {"x", 1}};
        manager.collect(payload, record(), force);
        EXPECT_THAT(calls, IsEmpty()) << "not inside the call";
        return settled();
    }
    std::vector<std::string> collectAnswered(const std::string& body, bool force = false) {
        phone->http().plan({.body = body});
        return collect(force);
    }
    std::vector<std::string> deliverFix() {
        phone->locationServices().deliver({{59.3293371, 18.0685808, 1.123456789012345, 270.5}});
        return settled();
    }
    std::size_t uploads() { return phone->http().requests().size(); }
    platform::HttpRequest lastUpload() { return phone->http().requests().back().request; }
    /// Of the last upload, in its text; after the base payload's last member.
    std::string locationMembers() {
        const std::string body = *lastUpload().body;
        return body.substr(body.find(R"("connection":1)") + 14);
    }

    KRAudienceManager manager{token};
    std::vector<std::string> calls;
};

TEST_F(Audience, StartsWithItsDefaultsAndStartsNothing) {
    EXPECT_EQ(manager.geoFixDecimals(), 5.0F);
    EXPECT_FALSE(manager.trackId() || manager.requestTrackingAuthorization());
    const KRAudienceManager full(std::nullopt, -1, "me");
    EXPECT_EQ(full.geoFixDecimals(), -1.0F);
    EXPECT_EQ(full.trackId(), "me");
    EXPECT_THAT(phone->standardUserDefaults().takeOperations(), IsEmpty());
    EXPECT_STREQ(MorvellacintoVersionString,
                 "@(#)PROGRAM:Morvellacinto  PROJECT:Morvellacinto-1\n");
    EXPECT_EQ(MorvellacintoVersionNumber, 1.0);
}

TEST_F(Audience, UploadsOnceAndThenServesTheCacheForNinetySecondsWhereverTheClockIsSet) {
    EXPECT_THAT(collectAnswered(R"({"n":1})"), ElementsAre(R"({"n":1})"));
    EXPECT_EQ(lastUpload().url, std::string(API_URL_PROD) + "/audience/");
    EXPECT_EQ(lastUpload().body, R"({"vendorId":"v","x":1})");
    EXPECT_EQ(lastUpload().headers.at(0).value, token.text());
    EXPECT_THAT(collectAnswered(R"({"n":2})", true), ElementsAre(R"({"n":2})")) << "forced";
    const double uploaded = phone->clock().now().secondsSinceReference;
    for (const double seconds : {-1e9, 90.0}) {
        phone->clock().set(Date{uploaded + seconds});
        EXPECT_THAT(collect(), ElementsAre(R"({"n":2})")) << seconds;
    }
    EXPECT_EQ(uploads(), 2U);
    phone->clock().set(Date{uploaded + 90.001});
    EXPECT_THAT(collectAnswered(R"({"n":3})"), ElementsAre(R"({"n":3})"));
}

TEST_F(Audience, KeepsTheCacheWhenATransferFailsOrTheAnswerIsNoObject) {
    collectAnswered(R"({"n":1})");
    const auto before = phone->standardUserDefaults().flushed();
    phone->clock().advance(1s);
    phone->http().plan({.error = KRError{"net", -1, {}}});
    EXPECT_THAT(collect(true), ElementsAre("net"));
    for (const char* body : {"[1]", "no json", ""}) {
        EXPECT_THAT(collectAnswered(body, true), IsEmpty());
    }
    EXPECT_EQ(phone->standardUserDefaults().flushed(), before);
}

TEST_F(Audience, WithoutACompletionAlwaysUploadsAndNeitherReadsNorKeepsAnAnswer) {
    collectAnswered(R"({"n":1})");
    const auto before = phone->standardUserDefaults().flushed();
    static_cast<void>(phone->standardUserDefaults().takeOperations());
    Object payload{{"x", 1}};
    phone->http().plan({.body = R"({"serviceurl":"https://b.invalid"})"});
    phone->http().plan({.error = KRError{"net", -1, {}}});
    manager.collect(payload, nullptr);
    manager.collect(payload, nullptr);
    phone->settle();
    EXPECT_EQ(uploads(), 3U);
    EXPECT_EQ(phone->standardUserDefaults().flushed(), before);
    EXPECT_THAT(phone->standardUserDefaults().takeOperations(),
                ::testing::Each("get se.kovra.v5.KRServiceURL"));
}

TEST_F(Audience, PutsTheTrackIdIntoTheCallersObject) {
    manager.setTrackId("me");
    Object payload{{"advertId", "a"}, {"x", 1}};
    manager.collect(payload, nullptr);
    EXPECT_EQ(writeJson(payload), R"({"advertId":"me","x":1,"vendorId":"me"})");
    EXPECT_EQ(lastUpload().body, writeJson(payload));
}

TEST_F(Audience, FollowsTheServiceToWhateverBaseUrlItNames) {
    collectAnswered(R"({"serviceurl":"https://b.invalid/v5/"})");
    collectAnswered(R"({"serviceurl":5})", true);
    EXPECT_EQ(lastUpload().url, "https://b.invalid/v5//audience/");
    EXPECT_THAT(collect(true), ElementsAre("morvellacinto.scripted.http"));
    EXPECT_EQ(lastUpload().url, std::nullopt);
}

TEST_F(Audience, KeepsTheOldAnswerUnderTheNewTimeWhenTheStoreRefusesIt) {
    collectAnswered(R"({"n":1})");
    phone->clock().advance(100s);
    EXPECT_THAT(collectAnswered(R"({"serviceurl":null})"), ElementsAre(R"({"serviceurl":null})"));
    expectLog({"storing failed"});
    EXPECT_THAT(collect(), ElementsAre(R"({"n":1})"));
    EXPECT_EQ(KRNetworkManager::baseURL(), Value(API_URL_PROD));
}

TEST_F(Audience, GivesNoAnswerWhenWhatIsStoredIsOfNoUse) {
    KRSettingsManager::setLocalSetting(phone->clock().now(), "KRAudienceUpdate");
    KRSettingsManager::setLocalSetting("no object", "KRAudiences");
    EXPECT_THAT(collect(), IsEmpty());
    EXPECT_EQ(manager.cachedTags(KRTagsTypeTags), std::nullopt);
    KRSettingsManager::setLocalSetting("no time", "KRAudienceUpdate");
    for (const bool force : {false, true}) {
        EXPECT_THAT(collect(force), IsEmpty());
        expectLog({"tags failed"});
    }
    EXPECT_EQ(uploads(), 0U);
}

TEST_F(Audience, SendsNothingForACallbackThatShutdownDropsAndThatCallsBackIn) {
    Object payload;
    std::shared_ptr<void> goodbye(nullptr, [&](void*) { manager.collect(payload, nullptr); });
    manager.collect(payload, [held = std::move(goodbye)](const auto&, const auto&) {});
    platform::shutdown();
    ASSERT_EQ(uploads(), 2U);
    EXPECT_FALSE(phone->http().requests().at(1).isSent);
    EXPECT_THROW(manager.collect(payload, nullptr), std::logic_error);
}

TEST_F(Audience, ReadsMembersOfACachedAnswerOfAnyAge) {
    EXPECT_EQ(manager.cachedTags(KRTagsTypeTags), std::nullopt);
    collectAnswered(R"({"tags":1,"":3})");
    phone->clock().advance(24h);
    const struct {
        int type;
        std::optional<Value> member;
    } cases[] = {{0, {}}, {1, 1}, {2, {}}, {3, {}}};
    for (const auto& [type, member] : cases) {
        EXPECT_EQ(manager.cachedTags(static_cast<KRTagsType>(type)), member) << type;
    }
    collectAnswered(R"({"tags":1,"mapping":2})", true);
    EXPECT_EQ(manager.cachedTags(KRTagsTypeMapping), Value(2));
}

// The data inventory lists them in backquotes in the first column of its table.
TEST_F(Audience, SendsTheFieldsThatTheInventoryListsAlsoOnceTheManagerIsGone) {
    KRAudienceManager(token).kovraTagsWithCompletion(nullptr);
    deliverFix();
    const platform::HttpRequest request = lastUpload();
    const Value body = *readJson(*request.body);
    std::vector<std::string> sent;
    for (const Object::Member& member : body.asObject()) {
        sent.emplace_back(member.key());
    }
    sent.push_back(request.headers.at(0).name);
    std::ifstream inventory(MORVELLACINTO_DATA_INVENTORY);
    std::vector<std::string> listed;
    for (std::string line; std::getline(inventory, line);) {
        if (line.starts_with("| `")) {
            listed.push_back(line.substr(3, line.find('`', 3) - 3));
        }
    }
    EXPECT_EQ(sent, listed);
}

TEST_F(Audience, CoarsensTheLocationButNotSpeedAndCourse) {
    // Without coordinates when JSON cannot hold them.
    const std::pair<float, const char*> cases[] = {
        {5.0F, R"("lat":59.32934,"lon":18.06858)"},
        {3.0F, R"("lat":59.329,"lon":18.069)"},
        {2.9F, R"("lat":59.33,"lon":18.07)"},
        {0.0F, R"("lat":59,"lon":18)"},
        {std::nanf(""), R"("lat":59,"lon":18)"},
        {-1.0F, nullptr},
        {-HUGE_VALF, nullptr},
        {0x1p31F, nullptr},
    };
    for (const auto& [decimals, coordinates] : cases) {
        manager.setGeoFixDecimals(decimals);
        manager.kovraTagsWithCompletion(nullptr);
        deliverFix();
        if (coordinates == nullptr) {
            expectLog({"tags failed"});
            continue;
        }
        EXPECT_EQ(locationMembers(),
                  "," + std::string(coordinates) + R"(,"speed":1.123456789012345,"course":270.5})");
    }
    EXPECT_EQ(uploads(), 5U);
}

TEST_F(Audience, UploadsZerosEachTimeThatAWaiterIsToldOfAFailure) {
    manager.kovraTagsWithCompletion(record());
    phone->http().plan({.body = "{}"});
    phone->locationServices().changeAuthorization(2);
    EXPECT_THAT(settled(), ElementsAre("{}"));
    EXPECT_EQ(locationMembers(), R"(,"lat":0,"lon":0,"speed":0,"course":0})");
    phone->clock().advance(91s);
    phone->http().plan({.body = "{}"});
    KRLocationManager::shared().locationManager()->startUpdatingLocation();
    EXPECT_THAT(deliverFix(), ElementsAre("{}"));
}

TEST_F(Audience, UploadsWithoutALocationFromAnyThreadWhenItMayNotBeUsed) {
    phone->script()->location.authorizationStatus = 2;
    phone->http().plan({.body = "{}"});
    std::thread([this] { manager.kovraTagsWithCompletion(record()); }).join();
    EXPECT_THAT(settled(), ElementsAre("{}"));
    EXPECT_EQ(locationMembers(), "}");
    EXPECT_EQ(phone->locationServices().startCount(), 0);
}

TEST_F(Audience, AssertsTheMainThreadWhenLocationMayBeUsed) {
    const auto fetch = [this] { manager.kovraTagsWithCompletion(nullptr); };
    std::thread([&] { EXPECT_THROW(fetch(), platform::AssertionFailure); }).join();
    EXPECT_EQ(phone->locationServices().startCount(), 0);
    const auto failures = phone->assertionHandler().takeFailures();
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].function + failures[0].file + std::to_string(failures[0].line),
              "-[KRAudienceManager kovraTagsWithCompletion:]KRAudienceManager115");
    EXPECT_EQ(failures[0].description,
              "kovraTagsWithCompletion has to be called on the main thread");
    phone->assertionHandler().returnAfterFailure(true);
    std::thread(fetch).join();
    EXPECT_EQ(phone->assertionHandler().takeFailures().size(), 1U);
    EXPECT_EQ(phone->locationServices().startCount(), 1);
}

TEST_F(Audience, FetchesOnceMoreAfterATrackingAnswerAndServesTheLatestCallAlone) {
    phone->script()->trackingAnswer = 2;
    const std::tuple<const char*, bool, std::uint64_t, int> cases[] = {
        {"14.0", false, 0, 0}, {"13.9", true, 0, 0}, {"14.0", true, 1, 0}, {"14.0", true, 0, 1}};
    int starts = 0;
    for (const auto& [version, wanted, status, asked] : cases) {
        phone->script()->systemVersion = version;
        phone->script()->trackingAuthorization = status;
        manager.setRequestTrackingAuthorization(wanted);
        manager.kovraTagsWithCompletion(record());
        EXPECT_EQ(phone->locationServices().startCount(), ++starts) << "it waits for the answer";
        phone->settle();
        EXPECT_EQ(phone->tracking().requestCount(), asked);
        EXPECT_EQ(phone->locationServices().startCount(), starts += asked);
    }
    phone->http().plan({.body = "{}"});
    EXPECT_THAT(deliverFix(), ElementsAre("{}"));
}

TEST(RoundToN, RoundsHalvesAwayFromZeroInSinglePrecision) {
    // From 10 decimals on the multiplier wraps: to 1410065408, 1215752192, -727379968 and so on.
    const std::tuple<float, std::uint32_t, float> cases[] = {{59.3293371F, 5, 59.32934F},
                                                             {-18.0685808F, 1, -18.1F},
                                                             {2.675F, 2, 2.68F},
                                                             {-2.5F, 0, -3.0F},
                                                             {2.5F, 0, 3.0F},
                                                             {1e30F, 9, HUGE_VALF},
                                                             {1e-9F, 10, 7.09186987e-10F},
                                                             {-1.4e-9F, 11, -1.64507208e-9F},
                                                             {1e-9F, 12, 1.37479728e-9F},
                                                             {2e-9F, 20, 1.80506177e-9F},
                                                             {4e-10F, 31, 4.65661287e-10F}};
    for (const auto& [value, decimals, rounded] : cases) {
        EXPECT_EQ(roundToN(value, decimals), rounded) << value << " to " << decimals;
    }
    for (const std::uint32_t decimals : {32U, 2147483648U, 4294967295U}) {
        EXPECT_TRUE(std::isnan(roundToN(59.3F, decimals))) << decimals;
    }
}

} // namespace
} // namespace morvellacinto
