#include "host/PhoneFile.h"

#include "morvellacinto/foundation/Json.h"

#include <gtest/gtest.h>

namespace morvellacinto::host {
namespace {

scripted::PhoneScript phoneOf(std::string_view text) {
    return readPhone(readJson(text)->asObject());
}

TEST(PhoneFile, EveryMemberIsRead) {
    const auto phone = phoneOf(R"({
        "systemVersion": "11.4.1", "locale": "de_CH", "bundle": "b",
        "vendorId": "00000000-0000-4000-8000-00000000000a",
        "advertisingId": "00000000-0000-4000-8000-00000000000B",
        "advertisingTrackingEnabled": false, "trackingAuthorization": 2, "trackingAnswer": 1,
        "model": "m", "batteryLevel": 0.5, "batteryState": 3,
        "carriers": [null, {"carrierName": "T", "isoCountryCode": "ch", "mobileNetworkCode": "7"}],
        "radioAccessTechnologies": ["NR", "LTE"], "reachabilityFlags": 262146,
        "wifi": [{"interface": "w0"}, {"interface": "w1", "SSID": "s", "BSSID": "0:1"}],
        "location": {"servicesEnabled": false, "authorizationStatus": 3,
                     "accuracyAuthorization": 1, "delaySeconds": 2,
                     "error": {"domain": "d", "code": -7},
                     "fixes": [{"latitude": 1, "longitude": -2.5},
                               {"latitude": 3, "longitude": 4, "speed": 5, "course": 6}]}})");
    EXPECT_EQ(phone.systemVersion.value() + *phone.locale + *phone.bundle + *phone.model,
              "11.4.1de_CHbm");
    EXPECT_EQ(phone.vendorId->text(), "00000000-0000-4000-8000-00000000000A");
    EXPECT_EQ(phone.advertisingId->text(), "00000000-0000-4000-8000-00000000000B");
    EXPECT_FALSE(phone.advertisingTrackingEnabled);
    EXPECT_EQ(std::pair(phone.trackingAuthorization, *phone.trackingAnswer), std::pair(2UL, 1UL));
    EXPECT_EQ(std::pair(phone.batteryLevel, phone.batteryState), std::pair(0.5F, 3L));
    EXPECT_FALSE(phone.carriers->at(0).has_value());
    const platform::Carrier& carrier = phone.carriers->at(1).value();
    EXPECT_EQ(*carrier.carrierName + *carrier.isoCountryCode + *carrier.mobileNetworkCode, "Tch7");
    EXPECT_EQ(phone.radioAccessTechnologies, (std::vector<std::string>{"NR", "LTE"}));
    EXPECT_EQ(phone.reachabilityFlags, 262146U);
    EXPECT_EQ(phone.wifi->at(0).network.ssid, std::nullopt);
    const auto& [interface, network] = phone.wifi->at(1);
    EXPECT_EQ(interface + *network.ssid + *network.bssid, "w1s0:1");
    EXPECT_FALSE(phone.location.servicesEnabled);
    EXPECT_EQ(std::pair(phone.location.authorizationStatus, phone.location.accuracyAuthorization),
              std::pair(3, 1));
    EXPECT_EQ(phone.location.delay->count(), 2);
    EXPECT_EQ(phone.location.error, (KRError{"d", -7, {}}));
    EXPECT_EQ(phone.location.fixes->at(0).longitude, -2.5);
    const platform::LocationFix& second = phone.location.fixes->at(1);
    EXPECT_EQ(std::tuple(second.latitude, second.longitude, second.speed, second.course),
              std::tuple(3, 4, 5, 6));
}

TEST(PhoneFile, NullIsNoAnswerAndAMissingMemberKeepsItsDefault) {
    EXPECT_EQ(phoneOf("{}").model, "phone14,2");
    EXPECT_EQ(phoneOf(R"({"location": {"delaySeconds": 9}})").location.authorizationStatus, 4);
    const auto silent = phoneOf(R"({"systemVersion": null, "model": null, "batteryLevel": null,
        "trackingAnswer": null, "wifi": null, "location": null})");
    EXPECT_FALSE(silent.systemVersion || silent.model || silent.trackingAnswer || silent.wifi);
    EXPECT_TRUE(silent.batteryLevel == -1 && !silent.location.servicesEnabled &&
                !silent.location.fixes);
}

TEST(PhoneFile, WhatIsWrongIsRefusedWithItsPlaceAndWhatWasExpected) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"model": 17.5})", "model is 17.5; expected a string"},
        {R"({"vendorId": "7B0F"})", "vendorId is \"7B0F\"; expected a string that is a UUID"},
        {R"({"location": {"servicesEnabled": 1}})",
         "location.servicesEnabled is 1; expected a boolean"},
        {R"({"trackingAnswer": 0})",
         "trackingAnswer is 0; expected an answer, and so an integer other than 0"},
        {R"({"reachabilityFlags": 4294967296})",
         "reachabilityFlags is 4294967296; expected an integer from 0 to 4294967295"},
        {R"({"batteryLevel": []})", "batteryLevel is an array; expected a number"},
        {R"({"carriers": ["Telco"]})", "carriers[0] is \"Telco\"; expected an object"},
        {R"({"location": {"fixes": [{"latitude": 5}]}})",
         "location.fixes[0].longitude is missing; expected a number"},
        {R"({"location": {"delaySeconds": -0.5}})",
         "location.delaySeconds is -0.5; expected a number of seconds from 0 to a year"},
        {R"({"location": {"fix": []}})",
         "location.fix is no member of a phone file; known here: servicesEnabled "
         "authorizationStatus accuracyAuthorization delaySeconds fixes error"},
    };
    for (const auto& [text, message] : cases) {
        try {
            (void)phoneOf(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const std::invalid_argument& refusal) {
            EXPECT_STREQ(refusal.what(), message);
        }
    }
}

} // namespace
} // namespace morvellacinto::host
