#include "PrivateBus.h"

#include "device/NativeDevice.h"

#include "morvellacinto/Morvellacinto.h"

#include <morvellacinto/native/NativePlatform.h>

#include <gtest/gtest.h>

#include <cstdlib>

namespace morvellacinto::native {
namespace {

TEST(Payload, OfAPhoneWithAllServicesHasAllKeysAndAsksForTheBatteryOnce) {
    const std::string manager = "org.freedesktop.NetworkManager";
    const std::string managerPath = "/org/freedesktop/NetworkManager";
    PrivateBus bus({"org.freedesktop.UPower", "org.freedesktop.ModemManager1", manager.c_str()});
    bus.folder.write("dbus-1/system-services/org.freedesktop.GeoClue2.service", "");
    setenv("XDG_DATA_DIRS", bus.folder.path().c_str(), 1);
    bus.reply("/org/freedesktop/UPower/devices/DisplayDevice", "org.freedesktop.UPower.Device",
              "GetAll", "a{sv}", 3, "IsPresent", "b", 1, "Percentage", "d", 75.0, "State", "u", 2U);
    bus.reply("/org/freedesktop/ModemManager1", "org.freedesktop.DBus.ObjectManager",
              "GetManagedObjects", "a{oa{sa{sv}}}", 1, "/Modem/0", 1,
              "org.freedesktop.ModemManager1.Modem", 2, "AccessTechnologies", "u", 1U << 14, "Sim",
              "o", "/sim");
    bus.reply("/sim", "org.freedesktop.ModemManager1.Sim", "GetAll", "a{sv}", 2, "OperatorName",
              "s", "Telco", "OperatorIdentifier", "s", "24001");
    bus.reply(managerPath, manager, "GetDevices", "ao", 3, "/absent", "/eth0", "/wlan0");
    bus.reply(managerPath, manager, "GetDeviceByIpIface", "o", "/wlan0");
    bus.reply("/eth0", manager + ".Device", "GetAll", "a{sv}", 2, "DeviceType", "u", 1U,
              "Interface", "s", "eth0");
    bus.reply("/wlan0", manager + ".Device", "GetAll", "a{sv}", 2, "DeviceType", "u", 2U,
              "Interface", "s", "wlan0");
    bus.reply("/wlan0", manager + ".Device.Wireless", "GetAll", "a{sv}", 1, "ActiveAccessPoint",
              "o", "/ap");
    bus.reply("/ap", manager + ".AccessPoint", "GetAll", "a{sv}", 2, "Ssid", "ay", 5, 0xC3, 0xA9,
              0xFF, 0xE2, 0x82, "HwAddress", "s", "00:11");
    std::vector<std::string> told;
    const auto platform = NativePlatform::create(
        {"com.example.host", bus.folder.path(), {}, {}, [&told](std::string_view sentence) {
             told.emplace_back(sentence);
         }});
    platform::install(platform);
    const auto payload = [] { return KRNetworkManager::basePayload(); };
    const Object expected{
        {"bundle", "com.example.host"},
        {"advertId", Uuid().text()},
        {"advertIdEnabled", false},
        {"carrierName", "Telco"},
        {"isoCountryCode", "se"},
        {"mobileNetworkCode", "01"},
        {"currentRadioAccessTechnology", "LTE"},
        {"batteryLevel", 0.75F},
        {"batteryState", 1},
        {"networks",
         Array::of({Object{{"ssid", "\xC3\xA9\uFFFD\uFFFD\uFFFD"}, {"bssid", "00:11"}}})},
        {"locationState", 4},
        {"accuracyAuthorization", "full"},
        {"vendorId", vendorIdentifier(vendorNumberOf("com.example.host"))->text()}};
    const Object all = payload();
    for (const Object::Member& member : expected) {
        EXPECT_EQ(all.at(member.key()), member.value) << member.key();
    }
    for (const char* key : {"locale", "system", "api", "platform", "device"}) {
        EXPECT_FALSE(all.at(key).asString().empty()) << key;
    }
    EXPECT_EQ(all.size(), 19U);
    EXPECT_EQ(bus.callsOf("GetAll"), 7);
    bus.reply("/wlan0", manager + ".Device.Wireless", "GetAll", "a{sv}", 2, "ActiveAccessPoint",
              "o", "/ap", "Mode", "u", 3U);
    EXPECT_EQ(payload().at("networks"), Value(Array())) << "the network is this device's own";
    EXPECT_TRUE(told.empty()) << told.front();
    platform::shutdown();
}

} // namespace
} // namespace morvellacinto::native
