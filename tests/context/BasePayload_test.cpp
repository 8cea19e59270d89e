// SPDX-License-Identifier: MIT
#include "morvellacinto/context/BasePayload.h"

#include "morvellacinto/context/DeviceFacts.h"
#include "morvellacinto/context/Reachability.h"
#include "morvellacinto/foundation/Json.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {

using KRNetworkManager::basePayload;

struct BasePayload : ScriptedPhoneTest {
    /// "name country network technology" of the payload.
    static std::string telephony() {
        std::string texts;
        const Object payload = basePayload();
        for (const char* key : {"carrierName", "isoCountryCode", "mobileNetworkCode",
                                "currentRadioAccessTechnology"}) {
            texts += std::string(payload.at(key).asString()) + ' ';
        }
        return texts;
    }
};

TEST_F(BasePayload, HoldsNineteenMembersInOrderAndFixedTextsForMissingAnswers) {
    EXPECT_EQ(writeJson(basePayload()),
              R"({"locale":"sv_SE","system":"17.5","api":"3.0.7","platform":"ios",)"
              R"("vendorId":"7B0F8C0E-3D1B-4C0B-9A52-0E6D3C2F4A11","bundle":"com.example.host",)"
              R"("advertId":"A1B2C3D4-0000-4000-8000-1234567890AB","advertIdEnabled":true,)"
              R"("device":"phone14,2","carrierName":"Telco","isoCountryCode":"se",)"
              R"("mobileNetworkCode":"01","currentRadioAccessTechnology":"LTE",)"
              R"("batteryLevel":0.75,"batteryState":1,)"
              R"("networks":[{"ssid":"home","bssid":"00:11:22:33:44:55"}],)"
              R"("locationState":4,"accuracyAuthorization":"full","connection":1})");
    phone->script()->vendorId = std::nullopt;
    phone->script()->bundle = std::nullopt;
    phone->script()->wifi = std::nullopt;
    phone->script()->reachabilityFlags = std::nullopt;
    const Object payload = basePayload();
    EXPECT_EQ(payload.at("vendorId"), Value("00000000-0000-0000-0000-000000000000"));
    EXPECT_EQ(payload.at("bundle"), Value("se.kovra.no-bundle"));
    EXPECT_EQ(payload.at("networks"), Value(Array()));
    EXPECT_EQ(payload.at("connection"), Value(0));
}

TEST_F(BasePayload, TakesTheFirstCarrierWithANameAndElseTheFirstAndBeforeTwelveTheOnlyOne) {
    const platform::Carrier nameless{std::nullopt, "no", "99"};
    const platform::Carrier named{"Telco", "se", std::nullopt};
    using Carriers = std::vector<std::optional<platform::Carrier>>;
    const std::tuple<std::optional<Carriers>, const char*, const char*> cases[] = {
        {Carriers{nameless, named}, "Telco se  ", " no 99 "},
        {Carriers{nameless, std::nullopt}, " no 99 ", " no 99 "},
        {Carriers{std::nullopt, nameless}, "   ", "   "},
        {Carriers(), "   ", "   "},
        {std::nullopt, "   ", "   "}};
    for (const auto& [carriers, later, before] : cases) {
        for (const char* const technology : {"LTE", "unknown"}) {
            phone->script()->radioAccessTechnologies =
                *technology == 'L' ? std::optional(Texts{technology, "NR"}) : std::nullopt;
            phone->script()->carriers = carriers;
            phone->script()->systemVersion = "12.0";
            EXPECT_EQ(telephony(), std::string(later) + technology + ' ');
            phone->script()->systemVersion = "11.9";
            EXPECT_EQ(telephony(), std::string(before) + technology + ' ');
        }
    }
}

TEST_F(BasePayload, KeepsFourMembersWhenAnythingBehindThemFailsAndThrowsWithoutOneOfThese) {
    const char* const four = R"({"locale":"sv_SE","system":"17.5","api":"3.0.7","platform":"ios"})";
    phone->script()->advertisingId = std::nullopt;
    EXPECT_EQ(writeJson(basePayload()), four);
    phone->script()->advertisingId = Uuid();
    phone->script()->model = std::nullopt;
    EXPECT_EQ(writeJson(basePayload()), four);
    expectLog({"payload failed", "payload failed"});
    phone->script()->locale = std::nullopt;
    EXPECT_THROW(static_cast<void>(basePayload()), std::runtime_error);
}

TEST_F(BasePayload, TellsWhetherTrackingIsAllowedByTheSystemsGeneration) {
    const std::tuple<const char*, std::uint64_t, bool, bool> cases[] = {
        {"14.0", 2, true, false}, {"14.0", 3, false, true},  {"14.0", 4, true, false},
        {"13.9", 2, true, true},  {"13.9", 3, false, false},
    };
    for (const auto& [version, status, legacy, isEnabled] : cases) {
        phone->script()->systemVersion = version;
        phone->script()->trackingAuthorization = status;
        phone->script()->advertisingTrackingEnabled = legacy;
        EXPECT_EQ(KRNetworkManager::advertisingIdentifierEnabled(), isEnabled)
            << version << ' ' << status;
    }
}

TEST_F(BasePayload, ListsJoinedNetworksInInterfaceOrderAndLeavesOutIncompleteOnes) {
    phone->script()->wifi = {{{"wlan0", "home", "00:11:22:33:44:55"},
                              {"wlan1", "hidden", std::nullopt},
                              {"wlan2", std::nullopt, "66:77:88:99:AA:BB"},
                              {"wlan3", "guest", "66:77:88:99:AA:CC"}}};
    EXPECT_EQ(writeJson(KRNetworkManager::currentNetworks()),
              R"([{"ssid":"home","bssid":"00:11:22:33:44:55"},)"
              R"({"ssid":"guest","bssid":"66:77:88:99:AA:CC"}])");
}

TEST(NetworkStatus, FollowsTheFlagsInOrder) {
    const std::pair<std::uint32_t, int> cases[] = {
        {0, 0},      {2, 1},          {2 + 4, 0},          {2 + 4 + 8, 1},  {2 + 4 + 32, 1},
        {2 + 16, 1}, {2 + 262144, 2}, {2 + 4 + 262144, 2}, {4 + 262144, 0}, {2 + 4 + 32 + 16, 0}};
    for (const auto& [flags, status] : cases) {
        EXPECT_EQ(KRNetworkManager::networkStatusForFlags(flags), status) << flags;
    }
}

} // namespace morvellacinto
