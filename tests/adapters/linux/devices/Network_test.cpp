// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include "basics/SystemFiles.h"
#include "network/NativeNetwork.h"

#include <gmock/gmock.h>

namespace morvellacinto::native {

namespace flags = platform::ReachabilityFlags;

TEST(Routes, ReadTheDefaultRoutesOfTheKernelsTables) {
    const std::string table = "Iface Destination Gateway Flags RefCnt Use Metric Mask\n"
                              "b0 00000000 0200020A 0003 0 0 700 00000000 0 0 0\n"
                              "half0 00000000 00000000 0001 0 0 1 00000080 0 0 0\n"
                              "net0 0000010A 00000000 0001 0 0 0 00FFFFFF 0 0 0\n"
                              "* 00000000 00000000 0201 0 0 5 00000000 0 0 0\n"
                              "off0 00000000 00000000 0002 0 0 5 00000000 0 0 0\n"
                              "a0 00000000 0200010A 0003 0 0 60 00000000 0 0 0\ncut0 0\n";
    EXPECT_THAT(defaultRoutesIn(table, AF_INET), ::testing::ElementsAre("a0", "b0"));
    const std::string none(32, '0');
    std::string table6;
    for (const auto& [length, metric, rest] :
         {std::tuple("00", "0000000B", "00000003 b0"), std::tuple("00", "0000000A", "00000003 a0"),
          std::tuple("00", "00000001", "00200200 lo"),
          std::tuple("40", "00000001", "00000001 net0")}) {
        table6 +=
            none + " " + length + " " + none + " 00 " + none + " " + metric + " 1 0 " + rest + "\n";
    }
    EXPECT_THAT(defaultRoutesIn(table6, AF_INET6), ::testing::ElementsAre("a0", "b0"));
}

// A network namespace of the test's own, with interfaces that lead nowhere, and described files.
struct ReachabilityTest : ::testing::Test {
    void SetUp() override {
        if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
            GTEST_SKIP() << "this machine lets the test make no network namespace";
        }
        run("link set lo up");
        for (const std::string name : {"a0", "b0", "vpn0"}) {
            const std::string network = std::to_string(name[0] - 'a' + 1);
            run("link add " + name + " up type veth peer name " + name + "x");
            run("link set " + name + "x up");
            run("addr add 10." + network + ".0.1/24 dev " + name + " label " + name + ":1");
            run("-6 addr add fd00:" + network + "::1/64 dev " + name + " nodad");
        }
        describe("b0", "uevent", "DEVTYPE=wwan\n");
        describe("vpn0", "type", "65534\n");
    }

    static void run(const std::string& command) {
        ASSERT_EQ(std::system(("ip " + command).c_str()), 0) << command;
    }
    void describe(const std::string& name, const std::string& file, const std::string& content) {
        root.write("sys/class/net/" + name + "/" + file, content);
    }
    // With the kernel's own routes in the files that stand for them.
    [[nodiscard]] std::optional<std::uint32_t> reach() {
        for (const char* file : {"proc/net/route", "proc/net/ipv6_route"}) {
            root.write(file, readSmallFile("/" + std::string(file)).value_or(""));
        }
        return NativeNetwork(bus, root.path()).defaultRouteFlags();
    }

    testing::TemporaryDirectory root;
    StopSignal stopSignal;
    Bus bus{[](std::string_view) {}, stopSignal};
};

TEST_F(ReachabilityTest, FollowsTheRouteThatThePacketsWouldTake) {
    EXPECT_EQ(reach(), 0U) << "networks, but no way out of them";
    run("route add default via 10.2.0.2 dev b0 metric 700");
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan);
    run("route add default via 10.1.0.2 dev a0 metric 600");
    EXPECT_EQ(reach(), flags::reachable);
    run("route add default via 10.2.0.2 dev b0 table 77");
    run("rule add to 192.0.2.0/24 lookup 77");
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan) << "rules come before the main table";
    run("route replace unreachable default table 77");
    EXPECT_EQ(reach(), 0U);
    run("-6 route add default via fd00:2::2 dev b0");
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan) << "IPv6 where IPv4 leads nowhere";
}

TEST_F(ReachabilityTest, TellsMobileNetworksAndWhatWaitsByTheKernelsFiles) {
    run("route add default via 10.1.0.2 dev a0");
    constexpr std::uint32_t mobile = flags::reachable | flags::isWwan;
    const std::tuple<const char*, const char*, std::uint32_t> cases[] = {
        {"operstate", "lowerlayerdown\n", 0},
        {"operstate", "dormant\n", flags::reachable | flags::connectionRequired},
        {"operstate", "up\n", flags::reachable},
        {"type", "519\n", mobile},
        {"phy80211/name", "phy0\n", flags::reachable},
        {"uevent", "INTERFACE=a0\nDEVTYPE=wwan\n", mobile}};
    for (const auto& [file, content, expected] : cases) {
        describe("a0", file, content);
        EXPECT_EQ(reach(), expected) << file << " " << content;
    }
}

TEST_F(ReachabilityTest, ATunnelCountsAsWhatItGoesThrough) {
    run("route add default via 10.22.0.2 dev vpn0 metric 1");
    EXPECT_EQ(reach(), flags::reachable) << "nothing known below it";
    run("-6 route add default via fd00:2::2 dev b0 metric 700");
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan);
    run("route add default via 10.1.0.2 dev a0 metric 600");
    EXPECT_EQ(reach(), flags::reachable);
    describe("a0", "operstate", "down\n");
    describe("vpn0", "type", "1\n");
    describe("vpn0", "tun_flags", "0x1\n");
    EXPECT_EQ(reach(), flags::reachable | flags::isWwan);
}

} // namespace morvellacinto::native
