// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include "basics/SystemFiles.h"
#include "device/Hardware.h"
#include "device/NativeDevice.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/utsname.h>

namespace morvellacinto::native {
namespace {

utsname kernel() {
    utsname names{};
    uname(&names);
    return names;
}

// Facts that come from no service.
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

} // namespace
} // namespace morvellacinto::native
