// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include "device/NativeDevice.h"
#include "telephony/NativeTelephony.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/SystemVersion.h"

#include <morvellacinto/native/NativePlatform.h>

#include <gmock/gmock.h>

namespace morvellacinto::native {
namespace {

constexpr const char* serviceName = "org.freedesktop.ModemManager1";
constexpr const char* modemInterface = "org.freedesktop.ModemManager1.Modem";
constexpr const char* networkInterface = "org.freedesktop.ModemManager1.Modem.Modem3gpp";

struct TelephonyTest : ::testing::Test {
    template <class... Objects>
    [[nodiscard]] auto infoOf(int count, Objects... objects) {
        daemon.reply("/org/freedesktop/ModemManager1", "org.freedesktop.DBus.ObjectManager",
                     "GetManagedObjects", "a{oa{sa{sv}}}", count, objects...);
        return NativeTelephony(daemon.bus).makeInfo();
    }

    PrivateBus daemon{{serviceName}};
};

std::string told(const std::optional<platform::Carrier>& carrier) {
    const auto orNone = [](const auto& text) { return text.value_or("-"); };
    return !carrier ? "none"
                    : orNone(carrier->carrierName) + " " + orNone(carrier->isoCountryCode) + " " +
                          orNone(carrier->mobileNetworkCode);
}

TEST_F(TelephonyTest, TheCarrierIsTheSimsElseThatOfTheNetworkWhichServesIt) {
    struct Case {
        const char *networkName, *networkCode, *sim, *simName, *simCode, *carrier;
    };
    const Case cases[] = {{"Roamed", "26201", "/sim", "Ten", "310260", "Ten us 260"},
                          {"Home", "24001", "/sim", "", "24001", "Home se 01"},
                          {"Other", "24001", "/sim", "Own", "24001", "Own se 01"},
                          {"Foreign", "26201", "/sim", "", "24007", "- se 07"},
                          {"Served", "26202", "/", "unseen", "310260", "Served de 02"},
                          {"", "", "/", "", "", "none"},
                          {"Net", "2620x", "/sim", "", "24", "Net - -"},
                          {"Net", "2620123", "/", "", "", "Net - -"}};
    for (const auto& [networkName, networkCode, sim, simName, simCode, carrier] : cases) {
        daemon.reply("/sim", "org.freedesktop.ModemManager1.Sim", "GetAll", "a{sv}", 2,
                     "OperatorName", "s", simName, "OperatorIdentifier", "s", simCode);
        const auto info = infoOf(1, "/Modem/0", 2, modemInterface, 2, "AccessTechnologies", "u",
                                 1U << 14, "Sim", "o", sim, networkInterface, 2, "OperatorName",
                                 "s", networkName, "OperatorCode", "s", networkCode);
        EXPECT_EQ(told(info->subscriberCellularProvider()), carrier);
        EXPECT_EQ(info->currentRadioAccessTechnology(), "LTE");
    }
}

TEST_F(TelephonyTest, EachModemIsAServiceInTheOrderOfTheirNumbers) {
    const auto info = infoOf(4, "/Modem/10", 2, modemInterface, 1, "AccessTechnologies", "u",
                             1U << 15, networkInterface, 1, "OperatorName", "s", "Ten", "/Modem/9",
                             1, modemInterface, 1, "AccessTechnologies", "u", 1U << 4, "/Modem/8",
                             1, modemInterface, 1, "AccessTechnologies", "s", "fast", "/Call/1", 0);
    EXPECT_THAT(info->serviceCurrentRadioAccessTechnology(),
                ::testing::Optional(::testing::ElementsAre("Edge", "NR")));
    const auto carriers = info->serviceSubscriberCellularProviders();
    ASSERT_EQ(carriers->size(), 3U);
    EXPECT_EQ(told(carriers->at(2)), "Ten - -");
    EXPECT_EQ(told(info->subscriberCellularProvider()), "none") << "of the first";
}

TEST(NameOfTechnology, IsThatOfTheNewestGeneration) {
    const char* const names[] = {nullptr,  "GPRS",         "GPRS",         "GPRS",         "Edge",
                                 "WCDMA",  "HSDPA",        "HSUPA",        "HSUPA",        "HSUPA",
                                 "CDMA1x", "CDMAEVDORev0", "CDMAEVDORevA", "CDMAEVDORevB", "LTE",
                                 "NR",     "LTE",          "LTE",          nullptr};
    for (std::size_t bit = 0; bit < std::size(names); ++bit) {
        EXPECT_STREQ(nameOfTechnology(1U << bit), names[bit]) << bit;
    }
    EXPECT_STREQ(nameOfTechnology(1U << 14 | 1U << 9 | 1U << 10), "LTE");
    EXPECT_STREQ(nameOfTechnology(1U << 15 | 1U << 14), "NRNSA");
    EXPECT_STREQ(nameOfTechnology(0xFFFFFFFF), nullptr) << "any";
}

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
    const auto platform = NativePlatform::create({"com.example.host", bus.folder.path(), {}, {}});
    platform::install(platform);
    EXPECT_TRUE(platform->systemVersion().isAtLeast(14, 0));
    EXPECT_FALSE(platform->systemVersion().isAtLeast(14, 1));
    Object payload = KRNetworkManager::basePayload();
    EXPECT_EQ(payload.at("vendorId"), vendorIdentifier(vendorNumberOf("com.example.host"))->text());
    for (const char* key : {"locale", "system", "device", "connection", "vendorId"}) {
        EXPECT_TRUE(payload.remove(key)) << "which the machine decides";
    }
    EXPECT_EQ(writeJson(payload),
              R"({"api":"3.0.7","platform":"ios","bundle":"com.example.host",)"
              R"("advertId":"00000000-0000-0000-0000-000000000000","advertIdEnabled":false,)"
              R"("carrierName":"Telco","isoCountryCode":"se","mobileNetworkCode":"01",)"
              R"("currentRadioAccessTechnology":"LTE","batteryLevel":0.75,"batteryState":1,)"
              "\"networks\":[{\"ssid\":\"\xC3\xA9\uFFFD\uFFFD\uFFFD\",\"bssid\":\"00:11\"}],"
              R"("locationState":4,"accuracyAuthorization":"full"})");
    EXPECT_EQ(bus.callsOf("GetAll"), 7);
    bus.reply("/wlan0", manager + ".Device.Wireless", "GetAll", "a{sv}", 2, "ActiveAccessPoint",
              "o", "/ap", "Mode", "u", 3U);
    EXPECT_EQ(KRNetworkManager::basePayload().at("networks"), Value(Array()))
        << "the network is this device's own";
    platform::shutdown();
}

} // namespace
} // namespace morvellacinto::native
