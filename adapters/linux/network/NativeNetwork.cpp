#include "NativeNetwork.h"

#include "Routes.h"
#include "WifiNetworks.h"
#include "basics/SystemFiles.h"

#include <string_view>
#include <sys/socket.h>

namespace morvellacinto::native {

namespace flags = platform::ReachabilityFlags;

namespace {

// Of <linux/if_arp.h>.
constexpr std::string_view hardwareRawIp = "519\n";
constexpr std::string_view hardwareNone = "65534\n";

// What the kernel tells of an interface, in a folder that bears its name.

enum class State { usable, waiting, down };

// Usable also when the kernel does not tell; waiting for something from outside.
State stateOf(const std::filesystem::path& interface) {
    const auto state = readSmallFile(interface / "operstate");
    if (!state || *state == "up\n" || *state == "unknown\n") {
        return State::usable;
    }
    return *state == "dormant\n" ? State::waiting : State::down;
}

bool isCellular(const std::filesystem::path& interface) {
    if (const auto type = readKey(interface / "uevent", "", "DEVTYPE")) {
        return type == "wwan";
    }
    if (fileExists(interface / "wireless") || fileExists(interface / "phy80211")) {
        return false;
    }
    const std::string name = interface.filename();
    return readSmallFile(interface / "type") == hardwareRawIp || name.starts_with("wwan") ||
           name.starts_with("rmnet");
}

// One that sends its packets through another interface.
bool isTunnel(const std::filesystem::path& interface) {
    return !isCellular(interface) && (readSmallFile(interface / "type") == hardwareNone ||
                                      fileExists(interface / "tun_flags"));
}

} // namespace

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
    const auto state = stateOf(folderOf(*interface));
    return state == State::down
               ? 0
               : flags::reachable | (state == State::waiting ? flags::connectionRequired : 0) |
                     (leadsOverCellular(*interface) ? flags::isWwan : 0);
}

bool NativeNetwork::leadsOverCellular(const std::string& interface) const {
    if (!isTunnel(folderOf(interface))) {
        return isCellular(folderOf(interface));
    }
    for (const int family : {AF_INET, AF_INET6}) {
        const auto* file = family == AF_INET ? "proc/net/route" : "proc/net/ipv6_route";
        const auto table = readSmallFile(root_ / file).value_or("");
        for (const std::string& below : defaultRoutesIn(table, family)) {
            const auto folder = folderOf(below);
            if (!isTunnel(folder) && stateOf(folder) == State::usable) {
                return isCellular(folder);
            }
        }
    }
    return false;
}

} // namespace morvellacinto::native
