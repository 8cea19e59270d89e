#include "morvellacinto/context/BasePayload.h"

#include "morvellacinto/context/DeviceFacts.h"
#include "morvellacinto/foundation/Json.h"
#include "support/ScriptedPhoneTest.h"

#include <gmock/gmock.h>

namespace morvellacinto {
namespace {

using KRNetworkManager::basePayload;
using ::testing::ElementsAre;

class BasePayload : public ScriptedPhoneTest {};

constexpr std::string_view baseMembers =
    R"({"locale":"sv_SE","system":"17.5","api":"3.0.7","platform":"ios"})";

TEST_F(BasePayload, holdsNineteenMembersInOrder) {
    EXPECT_EQ(writeJson(basePayload()),
              R"({"locale":"sv_SE","system":"17.5","api":"3.0.7","platform":"ios",)"
              R"("vendorId":"7B0F8C0E-3D1B-4C0B-9A52-0E6D3C2F4A11","bundle":"com.example.host",)"
              R"("advertId":"A1B2C3D4-0000-4000-8000-1234567890AB","advertIdEnabled":true,)"
              R"("device":"phone14,2","carrierName":"Telco","isoCountryCode":"se",)"
              R"("mobileNetworkCode":"01","currentRadioAccessTechnology":"LTE",)"
              R"("batteryLevel":0.75,"batteryState":1,)"
              R"("networks":[{"ssid":"home","bssid":"00:11:22:33:44:55"}],)"
              R"("locationState":4,"accuracyAuthorization":"full","connection":1})");
}

TEST_F(BasePayload, fillsMissingAnswersWithFixedTexts) {
    phone->script()->vendorId = std::nullopt;
    phone->script()->bundle = std::nullopt;
    phone->script()->carriers = std::nullopt;
    phone->script()->radioAccessTechnologies = std::nullopt;
    phone->script()->wifi = std::nullopt;
    phone->script()->reachabilityFlags = std::nullopt;
    const Object payload = basePayload();
    const Object fallbacks{{"vendorId", "00000000-0000-0000-0000-000000000000"},
                           {"bundle", "se.kovra.no-bundle"},
                           {"carrierName", ""},
                           {"isoCountryCode", ""},
                           {"mobileNetworkCode", ""},
                           {"currentRadioAccessTechnology", "unknown"},
                           {"networks", Array()},
                           {"connection", 0}};
    for (const Object::Member& member : fallbacks) {
        EXPECT_EQ(payload.at(member.key()), member.value) << member.key();
    }
    EXPECT_EQ(payload.size(), 19U);
}

TEST_F(BasePayload, takesTheFirstCarrierWithANameAndElseTheFirst) {
    const platform::Carrier nameless{std::nullopt, "no", "99"};
    const platform::Carrier named{"Telco", "se", std::nullopt};
    const struct {
        std::vector<std::optional<platform::Carrier>> carriers;
        const char *name, *country, *network;
    } cases[] = {
        {{nameless, named}, "Telco", "se", ""},
        {{nameless, std::nullopt}, "", "no", "99"},
        {{std::nullopt, nameless}, "", "", ""},
        {{}, "", "", ""},
    };
    for (const char* version : {"17.5", "12.0"}) {
        phone->script()->systemVersion = version;
        for (const auto& expected : cases) {
            phone->script()->carriers = expected.carriers;
            const Object payload = basePayload();
            EXPECT_EQ(payload.at("carrierName"), Value(expected.name));
            EXPECT_EQ(payload.at("isoCountryCode"), Value(expected.country));
            EXPECT_EQ(payload.at("mobileNetworkCode"), Value(expected.network));
        }
    }
}

TEST_F(BasePayload, takesTheOneServiceThatSystemsBeforeTwelveTell) {
    phone->script()->systemVersion = "11.4";
    phone->script()->carriers->insert(phone->script()->carriers->begin(),
                                      platform::Carrier{std::nullopt, "no", "99"});
    const Object payload = basePayload();
    EXPECT_EQ(payload.at("isoCountryCode"), Value("no"));
    EXPECT_EQ(payload.at("currentRadioAccessTechnology"), Value("LTE"));
    phone->script()->carriers = std::nullopt;
    phone->script()->radioAccessTechnologies = std::nullopt;
    EXPECT_EQ(basePayload().at("isoCountryCode"), Value(""));
    EXPECT_EQ(basePayload().at("currentRadioAccessTechnology"), Value("unknown"));
}

TEST_F(BasePayload, keepsFourMembersWhenAnythingBehindThemFails) {
    phone->script()->advertisingId = std::nullopt;
    EXPECT_EQ(writeJson(basePayload()), baseMembers);
    EXPECT_THAT(phone->takeLog(), ElementsAre("payload failed"));
    phone->script()->advertisingId = Uuid();
    phone->script()->model = std::nullopt;
    EXPECT_EQ(writeJson(basePayload()), baseMembers);
    EXPECT_THAT(phone->takeLog(), ElementsAre("payload failed"));
}

TEST_F(BasePayload, throwsWithoutALocaleOrSystemVersion) {
    phone->script()->locale = std::nullopt;
    EXPECT_THROW(static_cast<void>(basePayload()), std::runtime_error);
}

TEST_F(BasePayload, isTheCallersOwn) {
    Object first = basePayload();
    first.set("lat", 1.5F);
    first.set("locale", "xx");
    const Object second = basePayload();
    EXPECT_EQ(second.size(), 19U);
    EXPECT_EQ(second.at("locale"), Value("sv_SE"));
}

TEST_F(BasePayload, tellsWhetherTrackingIsAllowedByTheSystemsGeneration) {
    const struct {
        const char* version;
        std::uint64_t status;
        bool legacy, enabled;
    } cases[] = {{"14.0", 0, true, false}, {"14.0", 1, true, false}, {"14.0", 2, true, false},
                 {"14.0", 3, false, true}, {"14.0", 4, true, false}, {"13.7", 2, true, true},
                 {"13.7", 3, false, false}};
    for (const auto& expected : cases) {
        phone->script()->systemVersion = expected.version;
        phone->script()->trackingAuthorization = expected.status;
        phone->script()->advertisingTrackingEnabled = expected.legacy;
        EXPECT_EQ(KRNetworkManager::advertisingIdentifierEnabled(), expected.enabled)
            << expected.version << ' ' << expected.status;
    }
}

} // namespace
} // namespace morvellacinto
