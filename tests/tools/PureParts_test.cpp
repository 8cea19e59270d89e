// SPDX-License-Identifier: MIT
#include "host/PhoneFile.h"
#include "service/Upload.h"

#include "morvellacinto/context/BasePayload.h"
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/scripted/ScriptedPhone.h"

#include <gtest/gtest.h>

namespace morvellacinto::host {
namespace {

scripted::PhoneScript phoneOf(std::string_view text) {
    return readPhone(readJson(text)->asObject());
}

TEST(PhoneFile, EveryMemberIsRead) {
    const auto script = phoneOf(R"({
        "systemVersion": "15.1", "locale": "de_CH", "bundle": "b",
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
                     "fixes": [{"latitude": 3, "longitude": -4, "speed": 5, "course": 6}]}})");
    platform::install(scripted::ScriptedPhone::create(script));
    EXPECT_EQ(writeJson(KRNetworkManager::basePayload()),
              R"({"locale":"de_CH","system":"15.1","api":"3.0.7","platform":"ios",)"
              R"("vendorId":"00000000-0000-4000-8000-00000000000A","bundle":"b",)"
              R"("advertId":"00000000-0000-4000-8000-00000000000B","advertIdEnabled":false,)"
              R"("device":"m","carrierName":"T","isoCountryCode":"ch","mobileNetworkCode":"7",)"
              R"("currentRadioAccessTechnology":"NR","batteryLevel":0.5,"batteryState":3,)"
              R"("networks":[{"ssid":"s","bssid":"0:1"}],)"
              R"("locationState":3,"accuracyAuthorization":"reduced","connection":2})");
    EXPECT_FALSE(script.advertisingTrackingEnabled || script.location.servicesEnabled);
    EXPECT_EQ(std::pair(script.trackingAuthorization, *script.trackingAnswer), std::pair(2UL, 1UL));
    EXPECT_EQ(script.carriers->size() + script.wifi->size(), 4U);
    EXPECT_EQ(script.location.delay->count(), 2);
    EXPECT_EQ(script.location.error, (KRError{"d", -7, {}}));
    const platform::LocationFix& fix = script.location.fixes->at(0);
    EXPECT_EQ(std::tuple(fix.latitude, fix.longitude, fix.speed, fix.course),
              std::tuple(3, -4, 5, 6));
}

TEST(PhoneFile, WhatNoPhoneHasIsRefused) {
    for (const char* text : {R"({"modle": "m"})", R"({"trackingAnswer": 0})",
                             R"({"location": {"delaySeconds": -1}})"}) {
        EXPECT_THROW(phoneOf(text), std::invalid_argument) << text;
    }
}

std::string faultOf(const std::string& body, const std::string& token = Uuid().text()) {
    return service::Upload{"POST", "/", {{"API_TOKEN", token}}, body, ""}.fault().value_or("");
}

TEST(Upload, HasAPlaceOnEarthOrNoneAndATokenThatIsAUuid) {
    EXPECT_EQ(faultOf(R"({"lat":-90,"lon":180})"), "");
    EXPECT_EQ(faultOf("{}", "1234"), "the header API_TOKEN is not a UUID");
    EXPECT_EQ(faultOf(R"({"lat":-90.5,"lon":0})"), "\"lat\" is -90.5, which is not on earth");
    EXPECT_EQ(faultOf(R"({"lat":1})"), "\"lat\" and \"lon\" come together or not at all");
}

TEST(PhoneFile, NullIsNoAnswer) {
    const auto silent = phoneOf(R"({"systemVersion": null, "model": null, "batteryLevel": null,
        "trackingAnswer": null, "wifi": null, "location": null})");
    EXPECT_FALSE(silent.systemVersion || silent.model || silent.trackingAnswer || silent.wifi);
    EXPECT_TRUE(silent.batteryLevel == -1 && !silent.location.servicesEnabled &&
                !silent.location.fixes);
}

} // namespace
} // namespace morvellacinto::host
