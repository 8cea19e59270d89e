#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/scripted/ScriptedPhone.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace morvellacinto::scripted {
namespace {

PhoneScript scriptOf(std::string_view text) {
    return PhoneScript::read(readJson(text)->asObject());
}

TEST(PhoneScript, EveryMemberOfAFileReachesTheServiceThatAnswersIt) {
    const auto phone = ScriptedPhone::create(scriptOf(R"({
        "systemVersion": "11.4.1", "locale": "de_CH", "bundle": "b",
        "vendorId": "00000000-0000-4000-8000-00000000000a",
        "advertisingId": "00000000-0000-4000-8000-00000000000B",
        "advertisingTrackingEnabled": false, "trackingAuthorization": 2, "trackingAnswer": 1,
        "model": "m", "batteryLevel": 0.5, "batteryState": 3,
        "carriers": [null, {"isoCountryCode": "ch"}], "radioAccessTechnologies": ["NR", "LTE"],
        "reachabilityFlags": 262146,
        "wifi": [{"interface": "w0"}, {"interface": "w1", "SSID": "s", "BSSID": null}],
        "location": {"servicesEnabled": false, "authorizationStatus": 3,
                     "accuracyAuthorization": 1, "delaySeconds": 2, "error": null,
                     "fixes": [{"latitude": 1, "longitude": -2.5}]}})"));
    const auto& device = phone->device();
    EXPECT_EQ(device.systemVersion(), "11.4.1");
    EXPECT_EQ(device.localeIdentifier(), "de_CH");
    EXPECT_EQ(device.bundleIdentifier(), "b");
    EXPECT_EQ(device.identifierForVendor()->text(), "00000000-0000-4000-8000-00000000000A");
    EXPECT_EQ(device.hardwareMachine(), "m");
    EXPECT_EQ(device.batteryLevel(), 0.5F);
    EXPECT_EQ(device.batteryState(), 3);
    EXPECT_EQ(phone->tracking().advertisingIdentifier()->text(),
              "00000000-0000-4000-8000-00000000000B");
    EXPECT_FALSE(phone->tracking().isAdvertisingTrackingEnabled());
    EXPECT_EQ(phone->tracking().trackingAuthorizationStatus(), 2U);
    EXPECT_EQ(phone->script()->trackingAnswer, 1U);

    const auto info = phone->telephony().makeInfo();
    EXPECT_FALSE(info->subscriberCellularProvider().has_value());
    EXPECT_EQ(info->serviceSubscriberCellularProviders()->at(1)->isoCountryCode, "ch");
    EXPECT_EQ(info->serviceSubscriberCellularProviders()->at(1)->carrierName, std::nullopt);
    EXPECT_EQ(info->currentRadioAccessTechnology(), "NR");
    EXPECT_EQ(phone->network().defaultRouteFlags(), 262146U);
    EXPECT_THAT(phone->network().supportedInterfaces().value(), testing::ElementsAre("w0", "w1"));
    EXPECT_FALSE(phone->network().currentNetworkInfo("w0").has_value());
    EXPECT_EQ(phone->network().currentNetworkInfo("w1")->ssid, "s");

    EXPECT_FALSE(phone->locationServices().locationServicesEnabled());
    const auto service = phone->locationServices().makeService();
    EXPECT_EQ(service->authorizationStatus(), 3);
    EXPECT_EQ(service->accuracyAuthorization(), 1);
    const PhoneScript::Location location = phone->script()->location;
    EXPECT_EQ(location.delay->count(), 2);
    EXPECT_EQ(location.fixes->at(0).longitude, -2.5);
    EXPECT_EQ(location.fixes->at(0).course, -1) << "unknown";
}

TEST(PhoneScript, NullIsNoAnswerAndAMissingMemberKeepsItsDefault) {
    const PhoneScript untouched = scriptOf("{}");
    EXPECT_EQ(untouched.model, "phone14,2");
    EXPECT_EQ(untouched.vendorId->text(), "7B0F8C0E-3D1B-4C0B-9A52-0E6D3C2F4A11");
    EXPECT_EQ(scriptOf(R"({"location": {"delaySeconds": 9}})").location.authorizationStatus, 4);

    const PhoneScript silent = scriptOf(R"({
        "systemVersion": null, "vendorId": null, "model": null, "batteryLevel": null,
        "trackingAuthorization": null, "trackingAnswer": null, "carriers": null, "wifi": null,
        "reachabilityFlags": null, "location": null})");
    EXPECT_EQ(silent.systemVersion, std::nullopt);
    EXPECT_EQ(silent.vendorId, std::nullopt);
    EXPECT_EQ(silent.model, std::nullopt);
    EXPECT_EQ(silent.batteryLevel, -1);
    EXPECT_EQ(silent.trackingAuthorization, 0U);
    EXPECT_EQ(silent.trackingAnswer, std::nullopt);
    EXPECT_FALSE(silent.carriers.has_value() || silent.wifi.has_value());
    EXPECT_EQ(silent.reachabilityFlags, std::nullopt);
    EXPECT_FALSE(silent.location.servicesEnabled || silent.location.fixes.has_value());
}

TEST(PhoneScript, RefusesWhatIsWrongWithItsPlaceAndWhatWasExpected) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"systemVersion": 17.5})", "systemVersion is 17.5; expected a string"},
        {R"({"vendorId": "7B0F"})", "vendorId is \"7B0F\"; expected a string that is a UUID"},
        {R"({"advertisingTrackingEnabled": 1})",
         "advertisingTrackingEnabled is 1; expected a boolean"},
        {R"({"trackingAnswer": 0})",
         "trackingAnswer is 0; expected an answer, and so an integer other than 0"},
        {R"({"reachabilityFlags": 4294967296})",
         "reachabilityFlags is 4294967296; expected an integer from 0 to 4294967295"},
        {R"({"reachabilityFlags": -1})",
         "reachabilityFlags is -1; expected an integer from 0 to 4294967295"},
        {R"({"batteryState": 18446744073709551615})",
         "batteryState is 18446744073709551615; expected an integer from -9223372036854775808 to "
         "9223372036854775807"},
        {R"({"batteryLevel": []})", "batteryLevel is an array; expected a number"},
        {R"({"carriers": {}})", "carriers is an object; expected an array"},
        {R"({"carriers": ["Telco"]})", "carriers[0] is \"Telco\"; expected an object"},
        {R"({"radioAccessTechnologies": ["LTE", null]})",
         "radioAccessTechnologies[1] is null; expected a string"},
        {R"({"wifi": [{"SSID": "home"}]})", "wifi[0].interface is missing; expected a string"},
        {R"({"location": {"fixes": [{"latitude": "59", "longitude": 18}]}})",
         "location.fixes[0].latitude is \"59\"; expected a number"},
        {R"({"location": {"delaySeconds": -0.5}})",
         "location.delaySeconds is -0.5; expected a number of seconds from 0 to a year"},
        {R"({"location": {"error": {"domain": "d"}}})",
         "location.error.code is missing; expected an integer"},
        {R"({"location": {"fix": []}})", "location.fix is no member of a phone file"},
        {R"({"locales": "sv_SE"})", "locales is no member of a phone file"},
    };
    for (const auto& [text, message] : cases) {
        try {
            (void)scriptOf(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const std::invalid_argument& refusal) {
            EXPECT_STREQ(refusal.what(), message);
        }
    }
}

TEST(PhoneScript, VersionsCompareAsNumbers) {
    const auto phone = ScriptedPhone::create();
    const struct {
        std::optional<std::string> version;
        int major;
        int minor;
        bool isAtLeast;
    } cases[] = {
        {"17.5", 17, 5, true}, {"17.5", 17, 6, false},       {"9.10", 9, 9, true},
        {"9.3", 12, 0, false}, {"14", 14, 0, true},          {"13.9.9", 14, 0, false},
        {"beta", 1, 0, false}, {std::nullopt, 12, 0, false},
    };
    for (const auto& row : cases) {
        phone->script()->systemVersion = row.version;
        EXPECT_EQ(phone->systemVersion().isAtLeast(row.major, row.minor), row.isAtLeast)
            << row.version.value_or("none") << " against " << row.major << "." << row.minor;
    }
}

} // namespace
} // namespace morvellacinto::scripted
