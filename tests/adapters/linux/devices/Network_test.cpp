#include "Child.h"
#include "MockService.h"
#include "PrivateBus.h"

#include "basics/VisibleText.h"
#include "bus/Bus.h"
#include "network/NativeNetwork.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sched.h>
#include <systemd/sd-bus.h>

namespace morvellacinto::native {
namespace {

namespace flags = platform::ReachabilityFlags;
using ::testing::ElementsAre;
using ::testing::Optional;

constexpr const char* networkManager = "org.freedesktop.NetworkManager";
const std::string deviceInterface = "org.freedesktop.NetworkManager.Device";

class NetworkManagerMock : public MockService {
public:
    NetworkManagerMock() : MockService(networkManager) {
        onCall("GetDevices", [this](sd_bus_message* call) {
            reply(call, [this](sd_bus_message* message) {
                sd_bus_message_open_container(message, 'a', "o");
                for (const std::string& name : names_) {
                    sd_bus_message_append(message, "o", ("/device/" + name).c_str());
                }
                sd_bus_message_close_container(message);
            });
        });
        onCall("GetDeviceByIpIface", [](sd_bus_message* call) {
            const char* name = nullptr;
            sd_bus_message_read(call, "s", &name);
            reply(call, [name](sd_bus_message* message) {
                sd_bus_message_append(message, "o", ("/device/" + std::string(name)).c_str());
            });
        });
    }

    void addDevice(const std::string& name, Append type, const std::string& accessPoint = "/",
                   unsigned mode = 2) {
        names_.push_back(name);
        setProperties("/device/" + name, deviceInterface,
                      {{"DeviceType", std::move(type)}, {"Interface", text(name)}});
        setProperties("/device/" + name, deviceInterface + ".Wireless",
                      {{"ActiveAccessPoint", path(accessPoint)}, {"Mode", unsignedNumber(mode)}});
    }
    void addAccessPoint(const std::string& where, Append name, Append address) {
        setProperties(where, "org.freedesktop.NetworkManager.AccessPoint",
                      {{"Ssid", std::move(name)}, {"HwAddress", std::move(address)}});
    }

private:
    std::vector<std::string> names_;
};

TEST(WifiNetworks, AreThoseThatTheWifiDevicesHaveJoined) {
    const PrivateBus daemon;
    Bus bus([](std::string_view) {});
    const NativeNetwork network(bus);
    EXPECT_EQ(network.supportedInterfaces(), std::nullopt) << "no daemon";
    NetworkManagerMock mock;
    EXPECT_EQ(network.supportedInterfaces(), std::nullopt) << "no device";
    mock.addDevice("eth0", unsignedNumber(1));
    mock.addDevice("wlan1", unsignedNumber(2), "/ap/1");
    mock.addDevice("odd0", text("2"));
    mock.addDevice("wlan0", unsignedNumber(2));
    mock.addDevice("wlan2", unsignedNumber(2), "/ap/hidden");
    mock.addDevice("wlan3", unsignedNumber(2), "/ap/1", 3);
    mock.addAccessPoint("/ap/1", bytes("caf\xC3\xA9 \xFF!"), text("00:11:22:33:44:55"));
    mock.addAccessPoint("/ap/hidden", bytes(""), unsignedNumber(5));
    EXPECT_THAT(network.supportedInterfaces(),
                Optional(ElementsAre("wlan1", "wlan0", "wlan2", "wlan3")));
    EXPECT_FALSE(network.currentNetworkInfo("wlan3")) << "a hotspot of its own";
    const auto joined = network.currentNetworkInfo("wlan1");
    ASSERT_TRUE(joined);
    EXPECT_EQ(joined->ssid, "caf\xC3\xA9 \xEF\xBF\xBD!");
    EXPECT_EQ(joined->bssid, "00:11:22:33:44:55");
    EXPECT_FALSE(network.currentNetworkInfo("wlan0"));
    EXPECT_FALSE(network.currentNetworkInfo("wlan2")->ssid);
    EXPECT_FALSE(network.currentNetworkInfo("wlan2")->bssid);
    EXPECT_FALSE(network.currentNetworkInfo("absent0"));
}

TEST(VisibleText, ShowsEachByteThatIsNoUtf8) {
    EXPECT_EQ(visibleText("a\xED\xA0\x80z"), "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz");
    EXPECT_EQ(visibleText("\xE2\x82"), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

// A network namespace of the test's own, with interfaces that lead nowhere.
class ReachabilityTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (unshare(CLONE_NEWNET) != 0 &&
            (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0 || !run("link set lo up"))) {
            GTEST_SKIP() << "this machine lets the test make no network namespace";
        }
        ASSERT_TRUE(run("link set lo up"));
    }

    static bool run(const std::string& command) {
        return std::system(("ip " + command).c_str()) == 0;
    }
    // Two ends of a cable, the first with addresses.
    static void plug(const std::string& name, const std::string& network) {
        ASSERT_TRUE(run("link add " + name + " type veth peer name " + name + "x"));
        ASSERT_TRUE(run("link set " + name + " up") && run("link set " + name + "x up"));
        ASSERT_TRUE(run("addr add 10." + network + ".0.1/24 dev " + name));
        ASSERT_TRUE(run("-6 addr add fd00:" + network + "::1/64 dev " + name + " nodad"));
    }
    void describe(const std::string& name, const std::string& file, const std::string& content) {
        sysfs.write("class/net/" + name + "/" + file, content);
    }
    [[nodiscard]] std::optional<std::uint32_t> reach() {
        return NativeNetwork(bus, sysfs.path()).defaultRouteFlags();
    }

    TemporaryFolder sysfs;
    Bus bus{[](std::string_view) {}};
};

TEST_F(ReachabilityTest, FollowsTheRouteThatThePacketsWouldTake) {
    EXPECT_EQ(reach(), 0U);
    plug("a0", "1");
    plug("b0", "2");
    EXPECT_EQ(reach(), 0U) << "networks, but no way out of them";
    describe("b0", "uevent", "INTERFACE=b0\nDEVTYPE=wwan\n");
    ASSERT_TRUE(run("route add default via 10.2.0.2 dev b0 metric 700"));
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan);
    ASSERT_TRUE(run("route add default via 10.1.0.2 dev a0 metric 600"));
    EXPECT_EQ(reach(), flags::reachable);
    ASSERT_TRUE(run("route add default via 10.2.0.2 dev b0 table 77"));
    ASSERT_TRUE(run("rule add to 192.0.2.0/24 lookup 77"));
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan) << "rules come before the main table";
    ASSERT_TRUE(run("route replace unreachable default table 77"));
    EXPECT_EQ(reach(), 0U);
    ASSERT_TRUE(run("-6 route add default via fd00:1::2 dev a0"));
    EXPECT_EQ(reach(), flags::reachable) << "IPv6 where IPv4 leads nowhere";
}

TEST_F(ReachabilityTest, MapsStateAndKindOfTheInterface) {
    plug("a0", "1");
    ASSERT_TRUE(run("route add default via 10.1.0.2 dev a0"));
    const std::pair<const char*, std::uint32_t> states[] = {
        {"up", flags::reachable},
        {"unknown", flags::reachable},
        {"dormant", flags::reachable | flags::connectionRequired},
        {"down", 0},
        {"lowerlayerdown", 0},
    };
    for (const auto& [state, expected] : states) {
        describe("a0", "operstate", std::string(state) + "\n");
        EXPECT_EQ(reach(), expected) << state;
    }
    describe("a0", "operstate", "up\n");
    describe("a0", "type", "519\n");
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan) << "raw IP";
    describe("a0", "phy80211/name", "phy0\n");
    EXPECT_EQ(reach(), flags::reachable);
    describe("a0", "uevent", "DEVTYPE=wlan\n");
    EXPECT_EQ(reach(), flags::reachable);
    for (const char* name : {"wwan0", "rmnet_data0"}) {
        plug(name, "9");
        ASSERT_TRUE(run("route replace default via 10.9.0.2 dev " + std::string(name)));
        EXPECT_EQ(reach(), flags::reachable | flags::isWwan) << name;
        ASSERT_TRUE(run("link del " + std::string(name)));
        ASSERT_TRUE(run("route replace default via 10.1.0.2 dev a0"));
    }
}

TEST_F(ReachabilityTest, ATunnelCountsAsWhatItGoesThrough) {
    plug("a0", "1");
    plug("b0", "2");
    plug("vpn0", "3");
    describe("b0", "uevent", "DEVTYPE=wwan\n");
    describe("vpn0", "type", "65534\n");
    ASSERT_TRUE(run("route add default via 10.3.0.2 dev vpn0 metric 1"));
    EXPECT_EQ(reach(), flags::reachable) << "nothing known below it";
    ASSERT_TRUE(run("route add default via 10.2.0.2 dev b0 metric 700"));
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan);
    ASSERT_TRUE(run("route add default via 10.1.0.2 dev a0 metric 600"));
    EXPECT_EQ(reach(), flags::reachable);
    describe("a0", "operstate", "down\n");
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan);
}

} // namespace
} // namespace morvellacinto::native
