// SPDX-License-Identifier: MIT
#include "NativeNetwork.h"

#include "basics/SystemFiles.h"
#include "bus/BusValues.h"

#include <string_view>
#include <sys/socket.h>

namespace morvellacinto::native {

namespace flags = platform::ReachabilityFlags;

namespace {

constexpr const char* serviceName = "org.freedesktop.NetworkManager";
constexpr const char* managerPath = "/org/freedesktop/NetworkManager";
constexpr const char* deviceInterface = "org.freedesktop.NetworkManager.Device";
constexpr const char* wirelessInterface = "org.freedesktop.NetworkManager.Device.Wireless";
constexpr const char* accessPointInterface = "org.freedesktop.NetworkManager.AccessPoint";
constexpr std::int64_t wifiDevice = 2;
constexpr std::int64_t hotspotMode = 3; // the network is this device's own

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

// An access point's name is bytes of no certain encoding.
std::optional<std::string> networkName(const Object& accessPoint) {
    const Value* name = accessPoint.find("Ssid");
    if (name == nullptr || name->kind() != Value::Kind::bytes || name->asBytes().empty()) {
        return std::nullopt;
    }
    const auto bytes = name->asBytes();
    return visibleText({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

} // namespace

std::optional<std::uint32_t> NativeNetwork::defaultRouteFlags() const {
    const std::uint32_t version4 = flagsOf(AF_INET);
    return version4 != 0 ? version4 : flagsOf(AF_INET6);
}

std::optional<std::vector<std::string>> NativeNetwork::supportedInterfaces() const {
    BusConnection connection(bus_);
    const BusReply devices =
        connection.call({serviceName, managerPath, serviceName, "GetDevices", {}});
    const Array* paths = devices.body.empty() ? nullptr : devices.body[0].ifArray();
    if (paths == nullptr) {
        return std::nullopt;
    }
    std::vector<BusCall> calls;
    for (const Value& path : *paths) {
        if (path.isString()) {
            calls.push_back(
                readProperties(serviceName, std::string(path.asString()), deviceInterface));
        }
    }
    std::vector<std::string> names;
    for (const BusReply& reply : connection.callAll(calls)) {
        const Object device = objectAt(reply.body, 0);
        const auto name = textMember(device, "Interface");
        if (name && integerMember(device, "DeviceType") == wifiDevice) {
            names.push_back(*name);
        }
    }
    return names.empty() ? std::nullopt : std::optional(std::move(names));
}

std::optional<platform::WifiNetwork>
NativeNetwork::currentNetworkInfo(const std::string& interface) const {
    BusConnection connection(bus_);
    const BusReply device = connection.call(
        {serviceName, managerPath, serviceName, "GetDeviceByIpIface", oneText(interface)});
    const auto propertiesOf = [&](const std::string& path, const char* kind) {
        return objectAt(connection.call(readProperties(serviceName, path, kind)).body, 0);
    };
    const Object wireless = propertiesOf(textAt(device.body, 0), wirelessInterface);
    const auto accessPointPath = pathMember(wireless, "ActiveAccessPoint");
    if (!accessPointPath || integerMember(wireless, "Mode") == hotspotMode) {
        return std::nullopt;
    }
    const Object accessPoint = propertiesOf(*accessPointPath, accessPointInterface);
    return platform::WifiNetwork{networkName(accessPoint), textMember(accessPoint, "HwAddress")};
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
