#include "MockService.h"
#include "PrivateBus.h"

#include "bus/Bus.h"
#include "device/Hardware.h"
#include "device/NativeDevice.h"
#include "device/Sha256.h"
#include "device/VendorIdentifier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <sys/utsname.h>

namespace morvellacinto::native {
namespace {

TEST(Battery, IsTheDisplayDevicesOrUnknown) {
    struct Case {
        std::int64_t state;
        double percentage;
        Battery expected;
    };
    const Case cases[] = {{0, 50, {0.5F, 0}},  {1, 75, {0.75F, 2}}, {2, 10, {0.1F, 1}},
                          {3, 0, {0, 1}},      {4, 100, {1, 3}},    {5, 80, {0.8F, 2}},
                          {6, 80, {0.8F, 1}},  {7, 80, {0.8F, 0}},  {-1, 80, {0.8F, 0}},
                          {1, 100.5, {-1, 0}}, {1, -1, {-1, 0}}};
    for (const auto& [state, percentage, expected] : cases) {
        const Battery battery =
            batteryIn({{"IsPresent", true}, {"Percentage", percentage}, {"State", state}});
        EXPECT_EQ(battery.level, expected.level) << state << " " << percentage;
        EXPECT_EQ(battery.state, expected.state) << state << " " << percentage;
    }
    for (const Object& properties :
         {Object(), Object{{"Percentage", 50.0}, {"State", 2}},
          Object{{"IsPresent", false}, {"Percentage", 0.0}, {"State", 0}},
          Object{{"IsPresent", true}, {"Percentage", "50"}, {"State", 2}}}) {
        EXPECT_EQ(batteryIn(properties).level, -1);
        EXPECT_EQ(batteryIn(properties).state, 0);
    }
}

TEST(HardwareModel, ComesFromTheFirstSourceThatTellsIt) {
    PrivateBus daemon;
    const TemporaryRoot root;
    utsname names{};
    uname(&names);
    const NativeDevice device({}, daemon.bus, {}, root.path());
    EXPECT_EQ(device.hardwareMachine(), names.machine);
    const auto model = [&] { return findHardwareModel(daemon.bus, root.path()); };
    MockService host("org.freedesktop.hostname1");
    host.setProperties("/org/freedesktop/hostname1", "org.freedesktop.hostname1",
                       {{"HardwareModel", property("s", "Host")}});
    EXPECT_EQ(model(), "Host");
    EXPECT_EQ(device.hardwareMachine(), names.machine) << "the same on every call";
    root.write("sys/devices/virtual/dmi/id/product_name", "Product 5 \n");
    EXPECT_EQ(model(), "Product 5");
    root.write("proc/device-tree/model", std::string("Maker Phone\xFF v1\0", 16));
    EXPECT_EQ(model(), "Maker Phone\xEF\xBF\xBD v1");
    root.write("proc/device-tree/model", std::string("\0", 1));
    EXPECT_EQ(model(), "Product 5");
}

TEST(Sha256, GivesTheDigestsOfTheStandard) {
    const std::pair<std::string, std::uint32_t> vectors[] = {
        {"", 0xe3b0c442},
        {"abc", 0xba7816bf},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", 0x248d6a61},
        {std::string(1'000'000, 'a'), 0xcdc76e5c},
    };
    for (const auto& [message, start] : vectors) {
        const auto digest = sha256(message);
        EXPECT_EQ(digest[0] << 24U | digest[1] << 16U | digest[2] << 8U | digest[3], start);
    }
    EXPECT_EQ(sha256("abc").back(), 0xad);
}

TEST(VendorIdentifier, IsOneForEachVendorOnEachMachine) {
    EXPECT_EQ(vendorOf("com.example.host"), "com.example");
    EXPECT_EQ(vendorOf("host"), "host");
    EXPECT_EQ(vendorOf(""), "");
    const VendorIdentifier identity({}, [](const Uuid& number) { return std::optional(number); });
    EXPECT_EQ(identity.of("com.example").text(), "04CF290F-7986-DBC9-07EC-54101D0076FB")
        << "the same in every version";
    EXPECT_NE(identity.of("com.example2"), identity.of("com.example"));
}

TEST(VendorIdentifier, OfAMachineWithoutIdentityIsRandomAndKeptOnceItIsKnownThatNoneIs) {
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
    const auto none = [](const Uuid&) { return std::optional<Uuid>(); };
    const VendorIdentifier identifier(kept, none);
    const Uuid first = identifier.of("com.example");
    EXPECT_EQ(first.bytes()[6] >> 4, 4) << "a random identifier";
    EXPECT_TRUE(store.empty());
    canRead = true;
    EXPECT_EQ(identifier.of("com.example"), first);
    EXPECT_EQ(VendorIdentifier(kept, none).of("com.example"), first) << "in the next run too";
    store.begin()->second = "damaged";
    EXPECT_NE(VendorIdentifier(kept, none).of("com.example"), first);
}

} // namespace
} // namespace morvellacinto::native
