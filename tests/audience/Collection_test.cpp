#include "morvellacinto/audience/KRAudienceManager.h"

#include "morvellacinto/audience/Version.h"
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/ServiceEndpoint.h"
#include "support/ScriptedPhoneTest.h"

#include <gmock/gmock.h>

#include <cmath>

namespace morvellacinto {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

const Uuid token = *Uuid::parse("0123ABCD-0000-4000-8000-00000000FFFF");

class Collection : public ScriptedPhoneTest {
protected:
    KRAudienceManager::Completion record() {
        return [this](const std::optional<Object>& answer, const std::optional<KRError>& error) {
            EXPECT_TRUE(phone->dispatch().isMainThread());
            EXPECT_NE(answer.has_value(), error.has_value());
            calls.push_back(answer ? writeJson(*answer)
                                   : error->domain + " " + std::to_string(error->code));
        };
    }

    std::vector<std::string> collect(bool force = false) {
        Object payload{{"vendorId", "v"}, {"x", 1}};
        manager.collect(payload, record(), force);
        EXPECT_THAT(calls, IsEmpty()) << "the completion ran on the caller's stack";
        phone->settle();
        return std::exchange(calls, {});
    }

    std::size_t uploads() { return phone->http().requests().size(); }

    KRAudienceManager manager{token};
    std::vector<std::string> calls;
};

TEST_F(Collection, startsWithItsDefaultsAndStartsNothing) {
    EXPECT_EQ(manager.apiToken(), token);
    EXPECT_EQ(manager.geoFixDecimals(), 5.0F);
    EXPECT_EQ(manager.trackId(), std::nullopt);
    EXPECT_FALSE(manager.requestTrackingAuthorization());
    EXPECT_EQ(KRAudienceManager(std::nullopt, -1).geoFixDecimals(), -1.0F);
    EXPECT_EQ(KRAudienceManager(token, 3, "me").trackId(), "me");
    EXPECT_THAT(phone->standardUserDefaults().takeOperations(), IsEmpty());
    EXPECT_STREQ(MorvellacintoVersionString,
                 "@(#)PROGRAM:Morvellacinto  PROJECT:Morvellacinto-1\n");
    EXPECT_EQ(MorvellacintoVersionNumber, 1.0);
}

TEST_F(Collection, uploadsOnceAndThenServesTheCacheForNinetySeconds) {
    phone->http().plan({.body = R"({"tags":{"s":["1"]},"n":1})"});
    EXPECT_THAT(collect(), ElementsAre(R"({"tags":{"s":["1"]},"n":1})"));
    const auto sent = phone->http().requests().at(0).request;
    EXPECT_EQ(sent.url, std::string(API_URL_PROD) + "/audience/");
    EXPECT_EQ(sent.body, R"({"vendorId":"v","x":1})");
    EXPECT_EQ(sent.headers.at(0).value, token.text());

    phone->clock().advance(90s);
    EXPECT_THAT(collect(), ElementsAre(R"({"tags":{"s":["1"]},"n":1})"));
    EXPECT_EQ(uploads(), 1U);

    phone->http().plan({.body = R"({"n":2})"});
    EXPECT_THAT(collect(true), ElementsAre(R"({"n":2})"));
    phone->clock().advance(90001ms);
    phone->http().plan({.body = R"({"n":3})"});
    EXPECT_THAT(collect(), ElementsAre(R"({"n":3})"));
    EXPECT_EQ(uploads(), 3U);
}

TEST_F(Collection, servesTheCacheUntilNinetySecondsAfterTheUploadWhereverTheClockIsSet) {
    const double first = phone->clock().now().secondsSinceReference;
    const auto setTo = [&](double seconds) { phone->clock().set(Date{first + seconds}); };
    phone->http().plan({.body = R"({"n":1})"});
    collect();
    for (const double seconds : {-1e9, -90.5, 90.0}) {
        setTo(seconds);
        EXPECT_THAT(collect(), ElementsAre(R"({"n":1})")) << seconds;
    }
    EXPECT_EQ(uploads(), 1U);

    constexpr double day = 86'400;
    setTo(day);
    phone->http().plan({.body = R"({"n":2})"});
    EXPECT_THAT(collect(), ElementsAre(R"({"n":2})"));
    setTo(100); // the upload lies ahead now
    EXPECT_THAT(collect(), ElementsAre(R"({"n":2})"));
    EXPECT_EQ(uploads(), 2U);
    setTo(day + 90.001);
    phone->http().plan({.body = R"({"n":3})"});
    EXPECT_THAT(collect(), ElementsAre(R"({"n":3})"));
}

TEST_F(Collection, keepsTheCacheWhenATransferFails) {
    phone->http().plan({.body = R"({"n":1})"});
    collect();
    phone->http().plan({.error = KRError{"net", -1, {}}});
    EXPECT_THAT(collect(true), ElementsAre("net -1"));
    EXPECT_THAT(collect(), ElementsAre(R"({"n":1})"));
}

TEST_F(Collection, dropsAnAnswerThatIsNoObject) {
    for (const char* body : {"[1]", "no json", ""}) {
        phone->http().plan({.body = body});
        EXPECT_THAT(collect(), IsEmpty());
    }
    EXPECT_THAT(phone->standardUserDefaults().flushed(), IsEmpty());
}

TEST_F(Collection, alwaysUploadsAndIgnoresTheAnswerWithoutACompletion) {
    Object payload{{"x", 1}};
    KRSettingsManager::setLocalSetting(phone->clock().now(), "KRAudienceUpdate");
    KRSettingsManager::setLocalSetting(Object(), "KRAudiences");
    const auto before = phone->standardUserDefaults().flushed();
    static_cast<void>(phone->standardUserDefaults().takeOperations());
    for (int round = 0; round < 2; ++round) {
        phone->http().plan({.body = R"({"serviceurl":"https://b.invalid"})"});
        manager.collect(payload, nullptr);
        phone->settle();
    }
    phone->http().plan({.error = KRError{"net", -1, {}}});
    manager.collect(payload, nullptr);
    phone->settle();
    EXPECT_EQ(uploads(), 3U);
    EXPECT_EQ(phone->standardUserDefaults().flushed(), before);
    EXPECT_THAT(phone->standardUserDefaults().takeOperations(),
                Not(Contains(::testing::EndsWith("KRAudiences"))));
}

TEST_F(Collection, putsTheTrackIdIntoTheCallersObjectButNotIntoCopies) {
    manager.setTrackId("me");
    Object payload{{"advertId", "a"}, {"x", 1}};
    const Object before = payload;
    manager.collect(payload, nullptr);
    EXPECT_EQ(writeJson(payload), R"({"advertId":"me","x":1,"vendorId":"me"})");
    EXPECT_EQ(writeJson(before), R"({"advertId":"a","x":1})");
    EXPECT_EQ(phone->http().requests().at(0).request.body, writeJson(payload));
}

TEST_F(Collection, followsTheServiceToAnotherBaseUrl) {
    phone->http().plan({.body = R"({"serviceurl":"https://b.invalid/v5/"})"});
    collect();
    collect(true);
    EXPECT_EQ(phone->http().requests().at(1).request.url, "https://b.invalid/v5//audience/");
}

TEST_F(Collection, failsAsAnInvalidUrlWhenTheBaseUrlIsNoText) {
    phone->http().plan({.body = R"({"serviceurl":5})"});
    collect();
    EXPECT_THAT(collect(true), ElementsAre(::testing::HasSubstr(" ")));
    EXPECT_EQ(phone->http().requests().at(1).request.url, std::nullopt);
}

TEST_F(Collection, keepsTheOldAnswerUnderTheNewTimeWhenTheStoreRefusesIt) {
    phone->http().plan({.body = R"({"n":1})"});
    collect();
    phone->clock().advance(100s);
    phone->http().plan({.body = R"({"n":null,"serviceurl":null})"});
    EXPECT_THAT(collect(), ElementsAre(R"({"n":null,"serviceurl":null})"));
    EXPECT_THAT(phone->takeLog(), ElementsAre("storing failed"));
    EXPECT_THAT(collect(), ElementsAre(R"({"n":1})"));
    EXPECT_EQ(KRNetworkManager::baseURL(), Value(API_URL_PROD));
}

TEST_F(Collection, isSilentWhenTheCachedAnswerIsNoObject) {
    KRSettingsManager::setLocalSetting(phone->clock().now(), "KRAudienceUpdate");
    KRSettingsManager::setLocalSetting("text", "KRAudiences");
    EXPECT_THAT(collect(), IsEmpty());
    EXPECT_EQ(uploads(), 0U);
    EXPECT_EQ(manager.cachedTags(KRTagsTypeTags), std::nullopt);
}

TEST_F(Collection, logsOneLineWhenItCannotBeStarted) {
    KRSettingsManager::setLocalSetting(Object(), "KRAudiences");
    KRSettingsManager::setLocalSetting("no time", "KRAudienceUpdate");
    for (const bool force : {false, true}) {
        EXPECT_THAT(collect(force), IsEmpty());
        EXPECT_THAT(phone->takeLog(), ElementsAre("tags failed"));
    }
    Object payload{{"lat", std::nanf("")}};
    manager.collect(payload, nullptr);
    EXPECT_THAT(phone->takeLog(), ElementsAre("tags failed"));
    EXPECT_EQ(uploads(), 0U);
}

TEST_F(Collection, letsTheHostDropTheManagerWhileItIsInFlight) {
    {
        KRAudienceManager own(token);
        Object payload;
        own.collect(payload, record());
    }
    phone->http().answer({.body = "{}"});
    phone->settle();
    EXPECT_THAT(calls, ElementsAre("{}"));
}

TEST_F(Collection, startsNothingWhenACallbackThatShutdownDropsCallsBackIn) {
    struct Goodbye {
        explicit Goodbye(KRAudienceManager& calls) : manager(calls) {}
        Goodbye(const Goodbye&) = delete;
        Goodbye& operator=(const Goodbye&) = delete;
        ~Goodbye() {
            Object last;
            manager.collect(last, nullptr);
        }
        KRAudienceManager& manager;
    };
    Object payload;
    auto goodbye = std::make_shared<Goodbye>(manager);
    manager.collect(payload, [goodbye](const auto&, const auto&) {});
    goodbye.reset();
    platform::shutdown();
    ASSERT_EQ(uploads(), 2U);
    EXPECT_FALSE(phone->http().requests().at(1).isSent);
    EXPECT_THROW(manager.collect(payload, nullptr), std::logic_error);
}

TEST_F(Collection, readsMembersOfACachedAnswerOfAnyAge) {
    EXPECT_EQ(manager.cachedTags(KRTagsTypeTags), std::nullopt);
    phone->http().plan({.body = R"({"tags":{"s":["1"]}})"});
    collect();
    phone->clock().advance(24h);
    const KRAudienceManager another(std::nullopt);
    EXPECT_EQ(another.cachedTags(KRTagsTypeTags), *readJson(R"({"s":["1"]})"));
    EXPECT_EQ(another.cachedTags(KRTagsTypeMapping), std::nullopt);
    EXPECT_EQ(another.cachedTags(static_cast<KRTagsType>(0)), std::nullopt);
    EXPECT_EQ(another.cachedTags(static_cast<KRTagsType>(3)), std::nullopt);
}

} // namespace
} // namespace morvellacinto
