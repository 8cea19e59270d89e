#include "WifiNetworks.h"

#include "basics/VisibleText.h"
#include "bus/BusValues.h"

namespace morvellacinto::native {

namespace {

constexpr const char* serviceName = "org.freedesktop.NetworkManager";
constexpr const char* managerPath = "/org/freedesktop/NetworkManager";
constexpr const char* deviceInterface = "org.freedesktop.NetworkManager.Device";
constexpr const char* wirelessInterface = "org.freedesktop.NetworkManager.Device.Wireless";
constexpr const char* accessPointInterface = "org.freedesktop.NetworkManager.AccessPoint";
constexpr std::int64_t wifiDevice = 2;
constexpr std::int64_t hotspotMode = 3; // the network is this device's own

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

std::optional<std::vector<std::string>> wifiInterfaces(Bus& bus) {
    BusConnection connection(bus);
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

std::optional<platform::WifiNetwork> wifiNetworkOf(Bus& bus, const std::string& interface) {
    BusConnection connection(bus);
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

} // namespace morvellacinto::native
