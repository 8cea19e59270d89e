// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include "basics/SystemFiles.h"
#include "device/NativeDevice.h"
#include "telephony/NativeTelephony.h"

#include "morvellacinto/Morvellacinto.h"
#include "morvellacinto/platform/SystemVersion.h"

#include <morvellacinto/native/NativePlatform.h>

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <sys/utsname.h>

namespace morvellacinto::native {
namespace {

utsname kernel() {
    utsname names{};
    uname(&names);
    return names;
}

struct DeviceTest : ::testing::Test {
    NativeDevice device() { return {std::nullopt, bus, {}, root.path()}; }

    const testing::TemporaryDirectory root;
    StopSignal stopSignal;
    Bus bus{[](std::string_view) {}, stopSignal};
};

TEST_F(DeviceTest, GivesLocaleIdentifiersWithoutCodesetAndModifier) {
    std::istringstream cases(
        "sv_SE.UTF-8 sv_SE de_AT.ISO-8859-15@euro de_AT en en sr_RS@latin sr_RS"
        " C.UTF-8 en_US_POSIX POSIX en_US_POSIX .UTF-8 en_US_POSIX"
        " a/b en_US_POSIX s\xc3 en_US_POSIX");
    for (std::string name, identifier; cases >> name >> identifier;) {
        EXPECT_EQ(localeIdentifierOf(name), identifier) << name;
    }
    setenv("LC_ALL", "", 1);
    setenv("LC_MESSAGES", "", 1);
    for (const char* variable : {"LANG", "LC_MESSAGES", "LC_ALL"}) {
        setenv(variable, variable, 1);
        EXPECT_EQ(device().localeIdentifier(), variable);
    }
}

TEST_F(DeviceTest, ReadsTheSystemsVersionAndFallsBackOnTheKernels) {
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"usr/lib/os-release", "", kernel().release},
        {"etc/os-release", "VERSION_ID_LIKE=3\nVERSION_ID=''\n", kernel().release},
        {"usr/lib/os-release", "VERSION_ID=\"\xff\"\n", kernel().release},
        {"usr/lib/os-release", "VERSION_ID=\"1 2\"\n", kernel().release},
        {"usr/lib/os-release", "NAME=\"Some\"\nVERSION_ID=\"12\"\n", "12"},
        {"etc/os-release", "XVERSION_ID=9\nVERSION_ID=24.06.1", "24.06.1"}};
    for (const auto& [file, content, version] : cases) {
        root.write(file, content);
        EXPECT_EQ(device().systemVersion(), version) << content;
    }
}

TEST_F(DeviceTest, TakesTheBundleFromTheHostThenFromFlatpak) {
    unsetenv("FLATPAK_ID");
    root.write(".flatpak-info", "name=wrong\n[Application]\nruntime=a\nname=org.example.File\n"
                                "[Instance]\nname=org.example.Wrong\n");
    EXPECT_EQ(findBundleIdentifier("", root.path()), "org.example.File");
    setenv("FLATPAK_ID", "org.example.Variable", 1);
    EXPECT_EQ(findBundleIdentifier({}, root.path()), "org.example.Variable");
    EXPECT_EQ(findBundleIdentifier("com.example.host", root.path()), "com.example.host");
}

TEST_F(DeviceTest, ReadsFilesOfReasonableSizeAndWaitsForNobody) {
    EXPECT_EQ(readSmallFile(root.path()), std::nullopt) << "a folder";
    root.write("large", std::string(1'000'000, 'x'));
    EXPECT_EQ(readSmallFile(root.path() / "large")->size(), 64UL * 1024);
    ASSERT_EQ(mkfifo((root.path() / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(readSmallFile(root.path() / "pipe"), "") << "nobody writes";
}

TEST_F(DeviceTest, TheModelComesFromTheFirstSourceThatTellsIt) {
    PrivateBus daemon;
    EXPECT_EQ(device().hardwareMachine(), kernel().machine);
    daemon.serve({"org.freedesktop.hostname1"});
    daemon.reply("/org/freedesktop/hostname1", "org.freedesktop.hostname1", "GetAll", "a{sv}", 1,
                 "HardwareModel", "s", "Host");
    EXPECT_EQ(device().hardwareMachine(), "Host");
    root.write("sys/devices/virtual/dmi/id/product_name", "Product 5 \n");
    EXPECT_EQ(device().hardwareMachine(), "Product 5");
    root.write("proc/device-tree/model", std::string("Maker Phone\xFF v1\0", 16));
    EXPECT_EQ(device().hardwareMachine(), "Maker Phone\xEF\xBF\xBD v1");
}

TEST(Battery, IsTheDisplayDevicesOrUnknown) {
    const std::tuple<Value, Value, int, float, int> cases[] = {
        {true, 75.0, 0, 0.75F, 0}, {true, 0.0, 1, 0, 2},     {true, 100.0, 2, 1, 1},
        {true, 50.0, 3, 0.5F, 1},  {true, 50.0, 4, 0.5F, 3}, {true, 50.0, 5, 0.5F, 2},
        {true, 50.0, 6, 0.5F, 1},  {true, 50.0, 7, 0.5F, 0}, {true, 100.5, 2, -1, 0},
        {true, -1.0, 2, -1, 0},    {true, "50", 2, -1, 0},   {nullptr, 50.0, 2, -1, 0}};
    for (const auto& [isPresent, percentage, state, level, expected] : cases) {
        const Battery battery =
            batteryIn({{"IsPresent", isPresent}, {"Percentage", percentage}, {"State", state}});
        EXPECT_EQ(battery.level, level) << state;
        EXPECT_EQ(battery.state, expected) << state;
    }
}

TEST(VendorIdentifier, IsOneForEachVendorInEveryVersion) {
    EXPECT_EQ(sha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")[0], 0x24)
        << "as the standard's example, which fills its last block";
    const Uuid number = vendorNumberOf("com.example.host");
    EXPECT_EQ(number.text(), "04CF290F-7986-DBC9-07EC-54101D0076FB");
    EXPECT_EQ(vendorNumberOf("com.example.other"), number);
    EXPECT_NE(vendorNumberOf("com.example2.host"), number);
    EXPECT_NE(vendorIdentifier(number), number) << "hashed with the machine's identity";
}

constexpr const char* modemInterface = "org.freedesktop.ModemManager1.Modem";
constexpr const char* networkInterface = "org.freedesktop.ModemManager1.Modem.Modem3gpp";

struct TelephonyTest : ::testing::Test {
    template <class... Objects>
    [[nodiscard]] auto infoOf(int count, Objects... objects) {
        daemon.reply("/org/freedesktop/ModemManager1", "org.freedesktop.DBus.ObjectManager",
                     "GetManagedObjects", "a{oa{sa{sv}}}", count, objects...);
        return NativeTelephony(daemon.bus).makeInfo();
    }

    PrivateBus daemon{{"org.freedesktop.ModemManager1"}};
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
