#include "morvellacinto/context/Reachability.h"

#include "morvellacinto/foundation/Json.h"

#include "support/ScriptedPhoneTest.h"

#include <gmock/gmock.h>

namespace morvellacinto {
namespace {

TEST(NetworkStatus, followsTheFlagsInOrder) {
    const struct {
        std::uint32_t flags;
        KRNetworkStatus status;
    } cases[] = {
        {0, KRNotReachable},
        {2, KRReachableViaWiFi},
        {2 + 4, KRNotReachable},
        {2 + 4 + 8, KRReachableViaWiFi},
        {2 + 4 + 32, KRReachableViaWiFi},
        {2 + 4 + 32 + 16, KRNotReachable},
        {2 + 262144, KRReachableViaWWAN},
        {2 + 4 + 262144, KRReachableViaWWAN},
        {4 + 262144, KRNotReachable},
    };
    for (const auto& [flags, status] : cases) {
        EXPECT_EQ(KRNetworkManager::networkStatusForFlags(flags), status) << flags;
    }
}

class NetworkProbes : public ScriptedPhoneTest {};

TEST_F(NetworkProbes, areNotReachableWhenTheRouteCannotBeRead) {
    phone->script()->reachabilityFlags = std::nullopt;
    EXPECT_EQ(KRNetworkManager::currentReachabilityStatus(), KRNotReachable);
    phone->script()->reachabilityFlags = 2 + 262144;
    EXPECT_EQ(KRNetworkManager::currentReachabilityStatus(), KRReachableViaWWAN);
}

TEST_F(NetworkProbes, listJoinedNetworksInInterfaceOrderAndLeaveOutIncompleteOnes) {
    phone->script()->wifi = {{{"wlan0", "home", "00:11:22:33:44:55"},
                              {"wlan1", "hidden", std::nullopt},
                              {"wlan2", std::nullopt, "66:77:88:99:AA:BB"},
                              {"wlan3", "caf\xC3\xA9", "66:77:88:99:AA:CC"}}};
    EXPECT_EQ(Value(KRNetworkManager::currentNetworks()),
              *readJson(R"([{"ssid":"home","bssid":"00:11:22:33:44:55"},
                            {"ssid":"caf\u00e9","bssid":"66:77:88:99:AA:CC"}])"));
    phone->script()->wifi = std::nullopt;
    EXPECT_TRUE(KRNetworkManager::currentNetworks().empty());
}

} // namespace
} // namespace morvellacinto
