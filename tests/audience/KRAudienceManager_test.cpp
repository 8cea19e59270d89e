// SPDX-License-Identifier: MIT
#include "morvellacinto/Morvellacinto.h"
#include "support/ScriptedPhoneTest.h"

#include <cmath>
#include <fstream>
#include <thread>

namespace morvellacinto {

template <class... Arguments>
concept Requestable = requires(Arguments... arguments) {
    KRRequest::requestWithType(KRRequestTypePost, arguments...);
};
template <class Key>
concept Member = requires(Object object, Key key) {
    object.set(key, 1);
};
static_assert(std::is_constructible_v<KRAudienceManager, Uuid, int>);
static_assert(!std::is_constructible_v<KRAudienceManager, Uuid, double>);
static_assert(Requestable<const char*, KRRequest::Params>);
static_assert(!Requestable<const char*, Object>, "no payload becomes parameters");
static_assert(!Requestable<std::nullptr_t>);
static_assert(!std::is_assignable_v<KRRequest&, KRRequest> &&
                  !std::is_nothrow_move_constructible_v<KRRequest>,
              "a request never changes");
static_assert(Member<const char*> && Member<std::string> && !Member<std::nullptr_t>);

const Uuid token = *Uuid::parse("0123ABCD-0000-4000-8000-00000000FFFF");
const KRError lost{"net", -7, {{KRError::messageKey, "No network."}}};

struct Audience : ScriptedPhoneTest {
    KRAudienceManager::Completion record() {
        return [this](const auto& answer, const auto& error) {
            EXPECT_TRUE(phone->dispatch().isMainThread());
            EXPECT_NE(answer.has_value(), error.has_value());
            heard.push_back(answer ? writeJson(*answer) : error->domain);
        };
    }
    /// A completion that holds something of which it is counted where it dies.
    KRAudienceManager::Completion mortal() {
        ++made;
        const std::shared_ptr<void> held(nullptr, [this](void*) {
            ++(phone->dispatch().isMainThread() ? diedOnMain : diedElsewhere);
        });
        return [held](const auto&, const auto&) {};
    }
    Texts settled() {
        phone->settle();
        return std::exchange(heard, {});
    }
    Texts collect(bool force = false) {
        manager.collect({{"vendorId", "v"}, {"x", 1}}, record(), force);
        EXPECT_THAT(heard, IsEmpty()) << "not inside the call";
        return settled();
    }
    Texts collectAnswered(const std::string& body, bool force = false) {
        phone->http().plan({.body = body});
        return collect(force);
    }
    Texts deliverFix() {
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
    Texts heard;
    int made = 0;
    int diedOnMain = 0;
    int diedElsewhere = 0;
};

TEST(WithoutAPlatform, ACallSaysWhatToDo) {
    EXPECT_THAT([] { KRAudienceManager(token).collect({}, nullptr); },
                ::testing::ThrowsMessage<std::logic_error>(::testing::HasSubstr("install first")));
}

TEST_F(Audience, StartsWithItsDefaultsAndTakesNoTextForNothing) {
    EXPECT_EQ(manager.geoFixDecimals(), 5.0F);
    EXPECT_FALSE(manager.trackId() || manager.requestTrackingAuthorization());
    KRAudienceManager full(std::nullopt, -1, "me");
    EXPECT_EQ(full.geoFixDecimals(), -1.0F);
    EXPECT_EQ(full.trackId(), "me");
    full.setTrackId(nullptr);
    EXPECT_EQ(full.trackId(), std::nullopt);
    full.setApiToken(token);
    EXPECT_EQ(full.apiToken(), token);
    EXPECT_STREQ(MorvellacintoVersionString,
                 "@(#)PROGRAM:Morvellacinto  PROJECT:Morvellacinto-1\n");
    EXPECT_EQ(MorvellacintoVersionNumber, 1.0);
    EXPECT_THROW(platform::install(nullptr), std::invalid_argument);
    EXPECT_THROW(platform::install(phone), std::logic_error);
}

TEST_F(Audience, ServesTheCacheForNinetySecondsAndElseUploadsAndTellsWhatNobodyHears) {
    const auto ago = [this](double seconds) {
        return Date{phone->clock().now().secondsSinceReference - seconds};
    };
    const Object kept{{"n", 1}};
    const std::string one = R"({"n":1})";
    const std::string two = R"({"n":2})";
    const std::string badUrl{scripted::ScriptedHttp::errorDomain};
    const scripted::HttpAnswer busy{.status = 502, .body = "<html>"};
    const std::string answer = "the answer with status ";
    const std::string noDate = "tags failed: expected a date, found a string";
    const std::string uncalled = ", not an object; its completion is not called";
    const struct {
        Value updated, kept, base; // as stored; null when there is none
        std::optional<scripted::HttpAnswer> answer;
        std::string heard, told = "", logged = "";
        bool force = false;
    } cases[] = {
        {ago(90), kept, {}, {}, one},
        {ago(90.001), kept, {}, {{.body = two}}, two},
        {ago(-1e9), kept, {}, {}, one},
        {ago(0), kept, {}, {{.body = two}}, two, "", "", true},
        {{}, kept, {}, {{.body = two}}, two},
        {ago(0), {}, {}, {{.body = two}}, two},
        {ago(0), Array(), {}, {}, "", "the cached answer is an array" + uncalled},
        {"x", kept, {}, {}, "", noDate, "tags failed"},
        {"x", kept, {}, {}, "", noDate, "tags failed", true},
        {{}, kept, {}, {{.error = lost}}, "net"},
        {{}, kept, {}, {{.body = "[1]"}}, "", answer + "200 and 3 bytes is an array" + uncalled},
        {{}, kept, {}, {busy}, "", answer + "502 and 6 bytes is no JSON" + uncalled},
        {{}, {}, "b.invalid/v5?key=1", {}, badUrl, "the base URL is no URL but \"b.invalid/v5\""},
        {{}, {}, 5, {}, badUrl, "the base URL is no URL but an integer"},
        {{}, {}, Date{5}, {}, badUrl, "the base URL is no URL but a date"}};
    const auto texts = [](const std::string& text) { return text.empty() ? Texts() : Texts{text}; };
    for (const auto& each : cases) {
        SCOPED_TRACE(&each - cases);
        const std::pair<const char*, Value> settings[] = {{"KRAudienceUpdate", each.updated},
                                                          {"KRAudiences", each.kept},
                                                          {"KRServiceURL", each.base}};
        for (const auto& [key, value] : settings) {
            KRSettingsManager::removeLocalSettingForKey(key);
            KRSettingsManager::setLocalSetting(value, key);
        }
        const auto before = phone->standardUserDefaults().flushed();
        const std::size_t count = uploads();
        if (each.answer) {
            phone->http().plan(*each.answer);
        }
        EXPECT_EQ(collect(each.force), texts(each.heard));
        EXPECT_EQ(told(), texts(each.told));
        expectLog(texts(each.logged));
        EXPECT_EQ(uploads() > count, each.answer || !each.base.isNull());
        if (each.heard == two) {
            EXPECT_EQ(collect(), Texts{two}) << "kept";
        } else {
            EXPECT_EQ(phone->standardUserDefaults().flushed(), before);
        }
    }
}

TEST_F(Audience, WithoutACompletionAlwaysUploadsAndNeitherReadsNorKeepsAnAnswer) {
    collectAnswered(R"({"n":1})");
    EXPECT_EQ(lastUpload().headers.at(0).value, token.text());
    const auto before = phone->standardUserDefaults().flushed();
    static_cast<void>(phone->standardUserDefaults().takeOperations());
    phone->script()->reachabilityFlags = 2;
    Object payload{{"advertId", "a"},
                   {"connection", KRNetworkManager::currentReachabilityStatus()}};
    phone->http().plan({.body = R"({"serviceurl":"https://b.invalid"})"});
    phone->http().plan({.error = lost});
    manager.collect(payload, nullptr);
    KRAudienceManager moved = std::move(manager);
    moved.setTrackId("me");
    moved.collect(payload, nullptr);
    phone->settle();
    EXPECT_EQ(writeJson(payload), R"({"advertId":"me","connection":1,"vendorId":"me"})");
    EXPECT_EQ(lastUpload().body, writeJson(payload));
    EXPECT_EQ(uploads(), 3U);
    EXPECT_EQ(told(), Texts{"nobody hears of the error of an upload without a completion: net -7: "
                            "No network."});
    EXPECT_EQ(phone->standardUserDefaults().flushed(), before);
    EXPECT_THAT(phone->standardUserDefaults().takeOperations(),
                ::testing::Each("get se.kovra.v5.KRServiceURL"));
}

TEST_F(Audience, FollowsTheServiceAndKeepsTheOldAnswerUnderTheNewTimeWhenTheStoreRefusesOne) {
    collectAnswered(R"({"serviceurl":"https://b.invalid/v5/"})");
    phone->clock().advance(100s);
    EXPECT_THAT(collectAnswered(R"({"serviceurl":null})"), ElementsAre(R"({"serviceurl":null})"));
    EXPECT_EQ(lastUpload().url, "https://b.invalid/v5//audience/");
    expectLog({"storing failed"});
    EXPECT_THAT(collect(), ElementsAre(R"({"serviceurl":"https://b.invalid/v5/"})"));
    EXPECT_EQ(KRNetworkManager::baseURL(), Value("https://b.invalid/v5/"));
}

TEST_F(Audience, ReadsMembersOfACachedAnswerOfAnyAge) {
    EXPECT_EQ(manager.cachedTags(KRTagsTypeTags), std::nullopt);
    KRSettingsManager::setLocalSetting("no object", "KRAudiences");
    EXPECT_EQ(manager.cachedTags(KRTagsTypeTags), std::nullopt);
    KRSettingsManager::setLocalSetting(Object{{"tags", 1}, {"mapping", 2}, {"", 3}}, "KRAudiences");
    const std::optional<Value> members[] = {{}, 1, 2, {}};
    for (int type = 0; type < 4; ++type) {
        EXPECT_EQ(manager.cachedTags(static_cast<KRTagsType>(type)), members[type]) << type;
    }
    KRSettingsManager::setLocalSetting(Object{{"tags", 1}}, "KRAudiences");
    EXPECT_EQ(manager.cachedTags(KRTagsTypeMapping), std::nullopt);
}

// The data inventory lists them in backquotes in the first column of its table.
TEST_F(Audience, SendsTheFieldsThatTheInventoryListsAlsoOnceTheManagerIsGone) {
    KRAudienceManager(token).kovraTagsWithCompletion(nullptr);
    phone->locationServices().deliver({{59.3, 18.1, 1, 2}});
    phone->drainMain();
    EXPECT_EQ(phone->runBackground(), 1U) << "where the payload is made";
    phone->settle();
    const Value body = *readJson(*lastUpload().body);
    Texts sent;
    for (const Object::Member& member : body.asObject()) {
        sent.emplace_back(member.key());
    }
    sent.push_back(lastUpload().headers.at(0).name);
    std::ifstream inventory(MORVELLACINTO_DATA_INVENTORY);
    Texts listed;
    for (std::string line; std::getline(inventory, line);) {
        if (line.starts_with("| `")) {
            listed.push_back(line.substr(3, line.find('`', 3) - 3));
        }
    }
    EXPECT_EQ(sent, listed);
}

TEST_F(Audience, CoarsensTheLocationButNotSpeedAndCourse) {
    // Without coordinates when JSON cannot hold them.
    const std::pair<float, const char*> cases[] = {{5.0F, R"("lat":59.32934,"lon":18.06858)"},
                                                   {2.9F, R"("lat":59.33,"lon":18.07)"},
                                                   {std::nanf(""), R"("lat":59,"lon":18)"},
                                                   {-1.0F, nullptr},
                                                   {-HUGE_VALF, nullptr},
                                                   {0x1p31F, nullptr}};
    for (const auto& [decimals, coordinates] : cases) {
        manager.setGeoFixDecimals(decimals);
        manager.kovraTagsWithCompletion(nullptr);
        deliverFix();
        if (coordinates == nullptr) {
            EXPECT_EQ(told(), Texts{"tags failed: JSON cannot hold not-a-number, found at or below "
                                    "the member \"lat\""});
            expectLog({"tags failed"});
            continue;
        }
        EXPECT_EQ(locationMembers(),
                  "," + std::string(coordinates) + R"(,"speed":1.123456789012345,"course":270.5})");
    }
    EXPECT_EQ(uploads(), 3U);
}

TEST_F(Audience, UploadsZerosEachTimeThatAWaiterIsToldOfAFailure) {
    manager.kovraTagsWithCompletion(record());
    phone->http().plan({.body = "{}"});
    phone->locationServices().changeAuthorization(2);
    EXPECT_THAT(settled(), ElementsAre("{}"));
    EXPECT_EQ(locationMembers(), R"(,"lat":0,"lon":0,"speed":0,"course":0})");
    EXPECT_EQ(told(), Texts{"nobody hears of the error of a location; zeros are uploaded: "
                            "se.kovra.error 0"});
    KRLocationManager::shared().locationManager()->startUpdatingLocation();
    EXPECT_THAT(deliverFix(), ElementsAre("{}")) << "still waiting, and served from the cache";
    EXPECT_EQ(uploads(), 1U);
}

TEST_F(Audience, NeedsTheMainThreadOnlyWhenLocationMayBeUsed) {
    const auto fetch = [this] { manager.kovraTagsWithCompletion(record()); };
    std::thread([&] { EXPECT_THROW(fetch(), platform::AssertionFailure); }).join();
    EXPECT_EQ(phone->locationServices().startCount(), 0);
    const std::vector<scripted::ScriptedAssertionHandler::Failure> failures = {
        {"-[KRAudienceManager kovraTagsWithCompletion:]", "KRAudienceManager", 115,
         "kovraTagsWithCompletion has to be called on the main thread"}};
    EXPECT_EQ(phone->assertionHandler().takeFailures(), failures);
    phone->assertionHandler().returnAfterFailure(true);
    std::thread(fetch).join();
    EXPECT_EQ(phone->assertionHandler().takeFailures(), failures);
    EXPECT_EQ(phone->locationServices().startCount(), 1);
    phone->script()->location.authorizationStatus = 2;
    phone->http().plan({.body = "{}"});
    std::thread(fetch).join();
    EXPECT_THAT(settled(), ElementsAre("{}"));
    EXPECT_EQ(locationMembers(), "}");
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

TEST_F(Audience, ReleasesWhatACompletionHoldsOnTheMainQueueHoweverTheOperationEnds) {
    const auto collectOff = [this](bool force) {
        std::thread([&] { manager.collect({}, mortal(), force); }).join();
    };
    const auto upload = [&](const scripted::HttpAnswer& answer) {
        phone->http().plan(answer);
        collectOff(true);
    };
    const auto fetch = [this] { manager.kovraTagsWithCompletion(mortal()); };
    const std::pair<const char*, std::function<void()>> ways[] = {
        {"an answer", [&] { upload({.body = "{}"}); }},
        {"the cached answer", [&] { collectOff(false); }},
        {"an answer that is dropped", [&] { upload({.body = "[]"}); }},
        {"an error", [&] { upload({.error = lost}); }},
        {"a fix", fetch},
        {"a later call", [&] { fetch(), fetch(); }},
        {"a failed location", [&] { fetch(), phone->locationServices().fail(lost); }},
        {"the tracking question",
         [&] {
             manager.setRequestTrackingAuthorization(true);
             phone->script()->trackingAuthorization = 0;
             fetch();
         }},
        {"tags failed", [&] {
             KRSettingsManager::setLocalSetting("no time", "KRAudienceUpdate");
             collectOff(false);
         }}};
    for (const auto& [ending, begin] : ways) {
        made = diedOnMain = 0;
        begin();
        phone->settle();
        deliverFix();
        EXPECT_EQ(diedOnMain, made) << ending;
        EXPECT_EQ(diedElsewhere, 0) << ending;
    }
    expectLog({"tags failed"});
    diedOnMain = 0;
    phone->script()->locale = std::nullopt;
    fetch();
    EXPECT_THROW(deliverFix(), std::runtime_error) << "no payload can be made";
    phone->settle();
    EXPECT_EQ(diedOnMain, 1);
}

TEST(Journal, TellsEachStepOfAnUploadWithoutWhatIsPrivate) {
    const auto phone = scripted::ScriptedPhone::create();
    phone->script()->trackingAuthorization = platform::TrackingAuthorization::notDetermined;
    phone->script()->location.delay = 0s;
    phone->diagnostics()->keepRoutine(); // before it is installed
    platform::install(phone);
    const auto events = [&] {
        phone->settle();
        Texts texts;
        for (const platform::Diagnostic& record : phone->diagnostics()->takeRecords()) {
            texts.push_back(writeJson(objectOf(record)));
        }
        return texts;
    };
    KRAudienceManager manager(token, 2);
    manager.setRequestTrackingAuthorization(true);
    phone->http().plan({.body = R"({"serviceurl":"https://u:p@other.invalid/v5?key=1"})"});
    manager.kovraTagsWithCompletion([](const auto&, const auto&) {});
    Texts all = events();
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
    phone->http().plan({.error = lost});
    manager.collect({{"x", "yy"}}, nullptr, true);
    EXPECT_THAT(events(),
                ElementsAre(R"({"event":"uploadBegun","fields":{"x":4},"forced":true})",
                            R"({"event":"requestFailed","domain":"net","code":-7})",
                            R"({"event":"errorUnheard","of":"an upload without a completion",)"
                            R"("domain":"net","code":-7})"));
    platform::shutdown();
}

TEST_F(Audience, SendsNothingForACallbackThatShutdownDropsAndThatCallsBackIn) {
    std::shared_ptr<void> goodbye(nullptr, [&](void*) {
        manager.collect({}, nullptr);
        manager.kovraTagsWithCompletion(nullptr);
    });
    manager.collect({}, [held = std::move(goodbye)](const auto&, const auto&) {});
    manager.kovraTagsWithCompletion(mortal());
    platform::shutdown();
    EXPECT_EQ(diedOnMain, 1);
    EXPECT_EQ(phone->locationServices().startCount(), 1);
    ASSERT_EQ(uploads(), 2U);
    EXPECT_FALSE(phone->http().requests().at(1).isSent);
    EXPECT_THROW(manager.collect({}, nullptr), std::logic_error);
}

} // namespace morvellacinto
