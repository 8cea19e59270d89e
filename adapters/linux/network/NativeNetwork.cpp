#include "NativeNetwork.h"

#include "Routes.h"
#include "WifiNetworks.h"
#include "basics/SystemFiles.h"

#include <sys/socket.h>
#include <utility>

namespace morvellacinto::native {

namespace flags = platform::ReachabilityFlags;

NativeNetwork::NativeNetwork(Bus& bus, std::filesystem::path root)
    : root_(std::move(root)), bus_(bus), interfaces_(root_) {}

std::optional<std::uint32_t> NativeNetwork::defaultRouteFlags() const {
    const std::uint32_t version4 = flagsOf(AF_INET);
    return version4 != 0 ? version4 : flagsOf(AF_INET6);
}

std::optional<std::vector<std::string>> NativeNetwork::supportedInterfaces() const {
    return wifiInterfaces(bus_);
}

std::optional<platform::WifiNetwork>
NativeNetwork::currentNetworkInfo(const std::string& interface) const {
    return wifiNetworkOf(bus_, interface);
}

std::uint32_t NativeNetwork::flagsOf(int family) const {
    const auto interface = interfaceToInternet(family);
    if (!interface) {
        return 0;
    }
    const auto state = interfaces_.stateOf(*interface);
    if (state == InterfaceFacts::State::down) {
        return 0;
    }
    return flags::reachable |
           (state == InterfaceFacts::State::waiting ? flags::connectionRequired : 0) |
           (leadsOverCellular(*interface) ? flags::isWwan : 0);
}

bool NativeNetwork::leadsOverCellular(const std::string& interface) const {
    if (!interfaces_.isTunnel(interface)) {
        return interfaces_.isCellular(interface);
    }
    for (const int family : {AF_INET, AF_INET6}) {
        const auto* file = family == AF_INET ? "proc/net/route" : "proc/net/ipv6_route";
        const auto table = readSmallFile(root_ / file).value_or("");
        for (const std::string& below : defaultRoutesIn(table, family)) {
            if (!interfaces_.isTunnel(below) &&
                interfaces_.stateOf(below) == InterfaceFacts::State::usable) {
                return interfaces_.isCellular(below);
            }
        }
    }
    return false;
}

} // namespace morvellacinto::native
