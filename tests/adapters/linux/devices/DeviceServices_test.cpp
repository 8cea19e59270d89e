#include "MockService.h"
#include "PrivateBus.h"

#include "bus/Bus.h"
#include "device/Battery.h"
#include "device/HardwareModel.h"
#include "device/NativeDevice.h"
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
    const NativeDevice device(BundleIdentifier({}), daemon.bus, {}, root.path());
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

TEST(VendorIdentifier, IsOneForEachVendorOnEachMachine) {
    EXPECT_EQ(vendorOf("com.example.host"), "com.example");
    EXPECT_EQ(vendorOf("host"), "host");
    EXPECT_EQ(vendorOf(""), "");
    const VendorIdentifier identity({}, [](const Uuid& application) {
        Uuid::Bytes bytes = application.bytes();
        bytes[0] ^= 0xFF;
        return std::optional(Uuid(bytes));
    });
    EXPECT_EQ(identity.of("com.example"), identity.of("com.example"));
    EXPECT_NE(identity.of("com.example"), identity.of("com.example2"));
    EXPECT_NE(identity.of(""), Uuid());
}

TEST(VendorIdentifier, OfAMachineWithoutIdentityIsRandomAndKept) {
    std::map<std::string, std::string, std::less<>> store;
    const KeptValues kept{
        [&](std::string_view name) {
            const auto found = store.find(name);
            return found != store.end() ? std::optional(found->second) : std::nullopt;
        },
        [&](std::string_view name, std::string_view text) { store[std::string(name)] = text; }};
    const auto none = [](const Uuid&) { return std::optional<Uuid>(); };
    const Uuid first = VendorIdentifier(kept, none).of("com.example");
    EXPECT_EQ(first.bytes()[6] >> 4, 4) << "a random identifier";
    EXPECT_EQ(VendorIdentifier(kept, none).of("com.example"), first) << "in the next run too";
    store.begin()->second = "damaged";
    EXPECT_NE(VendorIdentifier(kept, none).of("com.example"), first);
    const VendorIdentifier unkept(
        {[](std::string_view) { return std::nullopt; }, [](std::string_view, std::string_view) {}},
        none);
    EXPECT_EQ(unkept.of("com.example"), unkept.of("com.example"));
}

} // namespace
} // namespace morvellacinto::native
