// SPDX-License-Identifier: MIT
#include "morvellacinto/context/Reachability.h"

#include "morvellacinto/platform/Network.h"
#include "morvellacinto/platform/Platform.h"

namespace morvellacinto::KRNetworkManager {

// A later test overrides an earlier one: the cellular bit wins even over a connection that is
// required and cannot be made.
KRNetworkStatus networkStatusForFlags(std::uint32_t flags) noexcept {
    namespace bit = platform::ReachabilityFlags;
    const auto isSet = [flags](std::uint32_t mask) { return (flags & mask) != 0; };
    if (!isSet(bit::reachable)) {
        return KRNotReachable;
    }
    KRNetworkStatus status = KRNotReachable;
    if (!isSet(bit::connectionRequired)) {
        status = KRReachableViaWiFi;
    }
    if (isSet(bit::connectionOnDemand | bit::connectionOnTraffic) &&
        !isSet(bit::interventionRequired)) {
        status = KRReachableViaWiFi;
    }
    if (isSet(bit::isWwan)) {
        status = KRReachableViaWWAN;
    }
    return status;
}

KRNetworkStatus currentReachabilityStatus() {
    const auto flags = platform::current()->network().defaultRouteFlags();
    return flags ? networkStatusForFlags(*flags) : KRNotReachable;
}

Array currentNetworks() {
    const auto platform = platform::current();
    Array networks;
    const auto interfaces = platform->network().supportedInterfaces();
    if (!interfaces) {
        return networks;
    }
    for (const std::string& interface : *interfaces) {
        const auto info = platform->network().currentNetworkInfo(interface);
        if (info && info->ssid && info->bssid) {
            networks.append(Object{{"ssid", *info->ssid}, {"bssid", *info->bssid}});
        }
    }
    return networks;
}

} // namespace morvellacinto::KRNetworkManager
