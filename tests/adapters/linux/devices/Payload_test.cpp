#include "MockService.h"
#include "PrivateBus.h"

#include "morvellacinto/Morvellacinto.h"

#include <morvellacinto/native/NativePlatform.h>

#include <gtest/gtest.h>

#include <cstdlib>

namespace morvellacinto::native {
namespace {

Object payloadIn(const TemporaryRoot& folder, std::vector<std::string>* told) {
    platform::install(NativePlatform::create(
        {"com.example.host", folder.path(), {}, {}, [told](std::string_view sentence) {
             told->emplace_back(sentence);
         }}));
    Object payload = KRNetworkManager::basePayload();
    platform::shutdown();
    return payload;
}

TEST(Payload, OfAPhoneWithAllServicesHasAllKeysAndAsksForTheBatteryOnce) {
    const PrivateBus daemon;
    daemon.folder.write("dbus-1/system-services/org.freedesktop.GeoClue2.service", "");
    setenv("XDG_DATA_DIRS", daemon.folder.path().c_str(), 1);
    MockService power("org.freedesktop.UPower");
    power.onCall(
        "/org/freedesktop/UPower/devices/DisplayDevice", "org.freedesktop.UPower.Device", "GetAll",
        answer("a{sv}", 3, "IsPresent", "b", 1, "Percentage", "d", 75.0, "State", "u", 2U));
    MockService modems("org.freedesktop.ModemManager1");
    modems.onCall("/org/freedesktop/ModemManager1", "org.freedesktop.DBus.ObjectManager",
                  "GetManagedObjects",
                  answer("a{oa{sa{sv}}}", 1, "/Modem/0", 1, "org.freedesktop.ModemManager1.Modem",
                         2, "AccessTechnologies", "u", 1U << 14, "Sim", "o", "/sim"));
    modems.onCall(
        "/sim", "org.freedesktop.ModemManager1.Sim", "GetAll",
        answer("a{sv}", 2, "OperatorName", "s", "Telco", "OperatorIdentifier", "s", "24001"));
    const std::string manager = "org.freedesktop.NetworkManager";
    const std::string managerPath = "/org/freedesktop/NetworkManager";
    MockService networks(manager.c_str());
    networks.onCall(managerPath, manager, "GetDevices",
                    answer("ao", 3, "/absent", "/eth0", "/wlan0"));
    networks.onCall(managerPath, manager, "GetDeviceByIpIface", answer("o", "/wlan0"));
    networks.onCall("/eth0", manager + ".Device", "GetAll",
                    answer("a{sv}", 2, "DeviceType", "u", 1U, "Interface", "s", "eth0"));
    networks.onCall("/wlan0", manager + ".Device", "GetAll",
                    answer("a{sv}", 2, "DeviceType", "u", 2U, "Interface", "s", "wlan0"));
    networks.onCall("/wlan0", manager + ".Device.Wireless", "GetAll",
                    answer("a{sv}", 1, "ActiveAccessPoint", "o", "/ap"));
    networks.onCall("/ap", manager + ".AccessPoint", "GetAll",
                    answer("a{sv}", 2, "Ssid", "ay", 5, 0xC3, 0xA9, 0xFF, 0xE2, 0x82, "HwAddress",
                           "s", "00:11"));
    std::vector<std::string> told;
    const Object payload = payloadIn(daemon.folder, &told);
    EXPECT_EQ(payload.size(), 19U);
    const Object expected{{"bundle", "com.example.host"},
                          {"advertId", Uuid().text()},
                          {"advertIdEnabled", false},
                          {"carrierName", "Telco"},
                          {"isoCountryCode", "se"},
                          {"mobileNetworkCode", "01"},
                          {"currentRadioAccessTechnology", "LTE"},
                          {"batteryLevel", 0.75F},
                          {"batteryState", 1},
                          {"networks", Array::of({Object{{"ssid", "\xC3\xA9\uFFFD\uFFFD\uFFFD"},
                                                         {"bssid", "00:11"}}})},
                          {"locationState", 4},
                          {"accuracyAuthorization", "full"}};
    for (const Object::Member& member : expected) {
        EXPECT_EQ(payload.at(member.key()), member.value) << member.key();
    }
    for (const char* key : {"locale", "system", "api", "platform", "vendorId", "device"}) {
        EXPECT_FALSE(payload.at(key).asString().empty()) << key;
    }
    EXPECT_NE(payload.at("vendorId"), Value(Uuid().text()));
    EXPECT_EQ(power.callsOf("GetAll"), 1);
    EXPECT_TRUE(told.empty()) << told.front();
}

TEST(Payload, WithoutAnyServiceHasAllKeys) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    std::vector<std::string> told;
    const Object payload = payloadIn(TemporaryRoot(), &told);
    EXPECT_EQ(payload.at("batteryLevel"), Value(-1.0F));
    EXPECT_EQ(payload.size(), 19U);
    EXPECT_EQ(told.size(), 1U);
}

} // namespace
} // namespace morvellacinto::native
