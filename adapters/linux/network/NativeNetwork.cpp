#include "NativeNetwork.h"

#include "Routes.h"

#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace morvellacinto::native {

namespace {
namespace flags = platform::ReachabilityFlags;
} // namespace

NativeNetwork::NativeNetwork(Bus& bus, std::filesystem::path sysfs)
    : wifi_(bus), interfaces_(std::move(sysfs)) {}

std::optional<std::uint32_t> NativeNetwork::defaultRouteFlags() const {
    try {
        Routes routes;
        const std::uint32_t version4 = flagsOf(routes, AF_INET);
        return version4 != 0 ? version4 : flagsOf(routes, AF_INET6);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

std::optional<std::vector<std::string>> NativeNetwork::supportedInterfaces() const {
    return wifi_.interfaces();
}

std::optional<platform::WifiNetwork>
NativeNetwork::currentNetworkInfo(const std::string& interface) const {
    return wifi_.networkOf(interface);
}

std::uint32_t NativeNetwork::flagsOf(Routes& routes, int family) const {
    const auto interface = routes.interfaceToInternet(family);
    if (!interface) {
        return 0;
    }
    const auto state = interfaces_.stateOf(*interface);
    if (state == InterfaceFacts::State::down) {
        return 0;
    }
    return flags::reachable |
           (state == InterfaceFacts::State::waiting ? flags::connectionRequired : 0) |
           (leadsOverCellular(routes, *interface) ? flags::isWwan : 0);
}

bool NativeNetwork::leadsOverCellular(Routes& routes, const std::string& interface) const {
    if (!interfaces_.isTunnel(interface)) {
        return interfaces_.isCellular(interface);
    }
    for (const int family : {AF_INET, AF_INET6}) {
        for (const std::string& below : routes.interfacesOfDefaultRoutes(family)) {
            if (!interfaces_.isTunnel(below) &&
                interfaces_.stateOf(below) == InterfaceFacts::State::usable) {
                return interfaces_.isCellular(below);
            }
        }
    }
    return false;
}

} // namespace morvellacinto::native
