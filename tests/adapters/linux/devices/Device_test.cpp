#include "MockService.h"
#include "PrivateBus.h"

#include "basics/SystemFiles.h"
#include "device/Hardware.h"
#include "device/NativeDevice.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
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
class DeviceTest : public ::testing::Test {
protected:
    NativeDevice device() { return {std::nullopt, bus, {}, root.path()}; }

    const TemporaryRoot root;
    StopSignal stopSignal;
    Bus bus{[](std::string_view) {}, stopSignal};
};

TEST_F(DeviceTest, GivesLocaleIdentifiersWithoutCodesetAndModifier) {
    const std::pair<const char*, const char*> cases[] = {{"sv_SE.UTF-8", "sv_SE"},
                                                         {"de_AT.ISO-8859-15@euro", "de_AT"},
                                                         {"en", "en"},
                                                         {"sr_RS@latin", "sr_RS"},
                                                         {"C.UTF-8", "en_US_POSIX"},
                                                         {"POSIX", "en_US_POSIX"},
                                                         {".UTF-8", "en_US_POSIX"},
                                                         {"a/b", "en_US_POSIX"},
                                                         {"s\xc3", "en_US_POSIX"}};
    for (const auto& [name, identifier] : cases) {
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
    EXPECT_EQ(device().systemVersion(), kernel().release) << "no file at all";
    root.write("etc/os-release", "VERSION_ID=''\nVERSION_ID_LIKE=3\n");
    root.write("usr/lib/os-release", "VERSION_ID=\"\xff\"\n");
    EXPECT_EQ(device().systemVersion(), kernel().release) << "none that could be sent";
    root.write("usr/lib/os-release", "NAME=\"Some\"\nVERSION_ID=\"12\"\n");
    EXPECT_EQ(device().systemVersion(), "12");
    root.write("etc/os-release", "XVERSION_ID=9\nVERSION_ID=24.06.1");
    EXPECT_EQ(device().systemVersion(), "24.06.1");
}

TEST_F(DeviceTest, TakesTheBundleFromTheHostThenFromFlatpak) {
    unsetenv("FLATPAK_ID");
    EXPECT_EQ(findBundleIdentifier({}, root.path()), std::nullopt);
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
    const PrivateBus daemon;
    const NativeDevice asked = device();
    EXPECT_EQ(asked.hardwareMachine(), kernel().machine);
    MockService host("org.freedesktop.hostname1");
    host.onCall("/org/freedesktop/hostname1", "org.freedesktop.hostname1", "GetAll",
                answer("a{sv}", 1, "HardwareModel", "s", "Host"));
    EXPECT_EQ(device().hardwareMachine(), "Host");
    EXPECT_EQ(asked.hardwareMachine(), "Host") << "only an answer is kept";
    root.write("sys/devices/virtual/dmi/id/product_name", "Product 5 \n");
    EXPECT_EQ(device().hardwareMachine(), "Product 5");
    EXPECT_EQ(asked.hardwareMachine(), "Host") << "for good";
    root.write("proc/device-tree/model", std::string("Maker Phone\xFF v1\0", 16));
    EXPECT_EQ(device().hardwareMachine(), "Maker Phone\xEF\xBF\xBD v1");
}

TEST(Battery, IsTheDisplayDevicesOrUnknown) {
    const std::int64_t states[] = {0, 2, 1, 1, 3, 2, 1, 0}; // by UPower's
    for (std::int64_t state = 0; state < std::ssize(states); ++state) {
        const Battery battery =
            batteryIn({{"IsPresent", true}, {"Percentage", 75.0}, {"State", state}});
        EXPECT_EQ(battery.level, 0.75F);
        EXPECT_EQ(battery.state, states[state]) << state;
    }
    for (const auto& [isPresent, percentage] :
         {std::pair(Value(true), Value(100.5)), std::pair(Value(true), Value(-1.0)),
          std::pair(Value(true), Value("50")), std::pair(Value(false), Value(0.0))}) {
        const Battery battery =
            batteryIn({{"IsPresent", isPresent}, {"Percentage", percentage}, {"State", 2}});
        EXPECT_EQ(battery.level, -1);
        EXPECT_EQ(battery.state, 0);
    }
}

TEST(Sha256, GivesTheDigestsOfTheStandard) {
    const std::pair<std::string, std::uint32_t> vectors[] = {
        {"abc", 0xba7816bf},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", 0x248d6a61},
        {std::string(1'000'000, 'a'), 0xcdc76e5c}};
    for (const auto& [message, start] : vectors) {
        const auto digest = sha256(message);
        EXPECT_EQ(digest[0] << 24U | digest[1] << 16U | digest[2] << 8U | digest[3], start);
    }
    EXPECT_EQ(sha256("abc").back(), 0xad);
}

TEST(VendorIdentifier, IsOneForEachVendorInEveryVersion) {
    const Uuid number = vendorNumberOf("com.example.host");
    EXPECT_EQ(number.text(), "04CF290F-7986-DBC9-07EC-54101D0076FB");
    EXPECT_EQ(vendorNumberOf("com.example.other"), number);
    EXPECT_NE(vendorNumberOf("com.example2.host"), number);
    EXPECT_NE(vendorIdentifier(number), number) << "hashed with the machine's identity";
}

TEST(KeptUuid, IsRandomAndKeptOnceItIsKnownThatNoneIs) {
    std::map<std::string, std::string, std::less<>> store;
    bool canRead = false;
    const KeptValues kept{
        [&](std::string_view name) {
            const auto found = store.find(name);
            return canRead && found != store.end() ? KeptText{found->second, true}
                                                   : KeptText{std::nullopt, canRead};
        },
        [&](std::string_view name, std::string_view text) { store[std::string(name)] = text; },
        [] { return true; }};
    KeptUuid identifier(kept, "name");
    const Uuid first = identifier.get();
    EXPECT_EQ(first.bytes()[6] >> 4, 4) << "a random identifier";
    EXPECT_TRUE(store.empty());
    canRead = true;
    EXPECT_EQ(identifier.get(), first);
    EXPECT_EQ(KeptUuid(kept, "name").get(), first) << "in the next run too";
    store.begin()->second = "damaged";
    EXPECT_NE(KeptUuid(kept, "name").get(), first);
}

} // namespace
} // namespace morvellacinto::native
