#include "Child.h"
#include "PrivateBus.h"
#include "adapters/linux/NativeFixtures.h"

#include "bus/Bus.h"
#include "morvellacinto/Morvellacinto.h"

#include <morvellacinto/native/NativePlatform.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <systemd/sd-bus.h>
#include <tuple>

namespace morvellacinto::native {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* python = "/usr/bin/python3";

bool hasMocks() {
    return std::system((std::string(python) + " -c 'import dbusmock' 2>/dev/null").c_str()) == 0;
}

std::shared_ptr<NativePlatform> makePlatform(const TemporaryDirectory& directory) {
    auto platform = NativePlatform::create({"com.example.host", directory.path(), {}, {}, {}});
    platform::install(platform);
    return platform;
}

std::vector<std::string> keysOf(const Object& object) {
    std::vector<std::string> keys;
    for (const Object::Member& member : object) {
        keys.emplace_back(member.key());
    }
    return keys;
}

std::chrono::microseconds timeOf(const std::function<void()>& act) {
    const auto before = Clock::now();
    act();
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - before);
}

std::chrono::microseconds medianOf(std::vector<std::chrono::microseconds> times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

class MockedPhone : public ::testing::Test {
protected:
    void SetUp() override {
        if (!hasMocks()) {
            GTEST_SKIP() << "no dbusmock for " << python;
        }
        mocks_.emplace(std::vector<std::string>{python, MORVELLACINTO_MOCKS});
        ASSERT_EQ(mocks_->readLine(), "ready");
    }

    PrivateBus daemon_;
    std::optional<Child> mocks_;
    TemporaryDirectory directory_;
};

TEST_F(MockedPhone, FillsAllKeysOfTheBasePayload) {
    const auto platform = makePlatform(directory_);
    // No file tells of the daemon: it is found on the bus.
    ASSERT_TRUE(pumpUntil(*platform, [] { return KRLocationManager::locationServiceEnabled(); }));
    const Object payload = KRNetworkManager::basePayload();
    EXPECT_EQ(payload.size(), 19U);
    const Object expected{
        {"bundle", "com.example.host"},
        {"advertId", Uuid().text()},
        {"advertIdEnabled", false},
        {"carrierName", "Telco"},
        {"isoCountryCode", "se"},
        {"mobileNetworkCode", "01"},
        {"currentRadioAccessTechnology", "LTE"},
        {"batteryLevel", 0.75F},
        {"batteryState", 2},
        {"networks", Array::of({Object{{"ssid", "home"}, {"bssid", "00:11:22:33:44:55"}}})},
        {"locationState", 4},
        {"accuracyAuthorization", "full"}};
    for (const Object::Member& member : expected) {
        EXPECT_EQ(payload.at(member.key()), member.value) << member.key();
    }
    for (const char* key : {"locale", "system", "api", "platform", "vendorId", "device"}) {
        EXPECT_FALSE(payload.at(key).asString().empty()) << key;
    }
    EXPECT_NE(payload.at("vendorId"), Value(Uuid().text()));
    platform::shutdown();
}

TEST_F(MockedPhone, GivesAFixWithSpeedAndCourse) {
    const auto platform = makePlatform(directory_);
    auto& location = KRLocationManager::shared();
    ASSERT_TRUE(pumpUntil(*platform, [] { return KRLocationManager::locationServiceEnabled(); }));
    std::optional<platform::LocationFix> fix;
    location.addLocationUpdateBlock([&fix](const auto& given, const auto&) { fix = given; }, "key");
    ASSERT_TRUE(pumpUntil(*platform, [&fix] { return fix.has_value(); }));
    EXPECT_EQ(fix->latitude, 59.3293371);
    EXPECT_EQ(fix->speed, 1.25);
    EXPECT_EQ(fix->course, 270.5);
    platform::shutdown();
}

TEST_F(MockedPhone, ThePayloadTakesLittleMoreThanItsRoundTrips) {
    const auto platform = makePlatform(directory_);
    Bus bus([](std::string_view) {});
    const std::string network = "org.freedesktop.NetworkManager";
    const std::string manager = "/org/freedesktop/NetworkManager";
    const BusCall upower =
        readProperties("org.freedesktop.UPower", "/org/freedesktop/UPower/devices/DisplayDevice",
                       "org.freedesktop.UPower.Device");
    const auto propertiesOf = [&](const std::string& path, const std::string& interface) {
        return readProperties(network, manager + path, network + interface);
    };
    // Those that the payload makes, one after the other.
    const BusCall calls[] = {
        {"org.freedesktop.ModemManager1",
         "/org/freedesktop/ModemManager1",
         "org.freedesktop.DBus.ObjectManager",
         "GetManagedObjects",
         {}},
        readProperties("org.freedesktop.ModemManager1", "/org/freedesktop/ModemManager1/SIM/0",
                       "org.freedesktop.ModemManager1.Sim"),
        upower,
        upower,
        {network, manager, network, "GetDevices", {}},
        propertiesOf("/Devices/eth0", ".Device"),
        propertiesOf("/Devices/wlan0", ".Device"),
        {network, manager, network, "GetDeviceByIpIface",
         [](sd_bus_message* message) { return sd_bus_message_append(message, "s", "wlan0"); }},
        propertiesOf("/Devices/wlan0", ".Device.Wireless"),
        propertiesOf("/AccessPoint/ap0", ".AccessPoint"),
    };
    std::vector<std::chrono::microseconds> payloads;
    std::vector<std::chrono::microseconds> roundTrips;
    for (int round = 0; round < 51; ++round) { // side by side, for the machine has other work too
        payloads.push_back(timeOf([] { std::ignore = KRNetworkManager::basePayload(); }));
        roundTrips.push_back(timeOf([&] {
            for (const BusCall& call : calls) {
                EXPECT_TRUE(bus.call(call).succeeded()) << call.member;
            }
        }));
    }
    const auto payload = medianOf(payloads);
    const auto trips = medianOf(roundTrips);
    std::cout << "payload " << payload.count() << " us, its " << std::size(calls)
              << " round trips alone " << trips.count() << " us\n";
    EXPECT_LT(payload, 3 * trips + std::chrono::milliseconds(20));
    platform::shutdown();
}

TEST(Payload, WithoutAnyServiceHasAllKeysAtOnce) {
    const TemporaryDirectory directory;
    std::vector<std::string> told;
    auto platform = NativePlatform::create(
        {"com.example.host", directory.path(), {}, {}, [&told](std::string_view sentence) {
             told.emplace_back(sentence);
         }});
    platform::install(platform);
    const std::clock_t before = std::clock();
    const Object payload = KRNetworkManager::basePayload();
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 10) << "processor time, not the machine's";
    EXPECT_EQ(payload.at("batteryLevel"), Value(-1.0F));
    EXPECT_EQ(payload.at("locationState"), Value(0));
    EXPECT_THAT(told, ::testing::SizeIs(::testing::Le(1)));
    EXPECT_THAT(keysOf(payload), ::testing::SizeIs(19));
    platform::shutdown();
}

} // namespace
} // namespace morvellacinto::native
