// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Interface.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::platform {

/// The bits of `Network::defaultRouteFlags` that the library reads.
namespace ReachabilityFlags {
inline constexpr std::uint32_t reachable = 2;
inline constexpr std::uint32_t connectionRequired = 4;
inline constexpr std::uint32_t connectionOnTraffic = 8;
inline constexpr std::uint32_t interventionRequired = 16;
inline constexpr std::uint32_t connectionOnDemand = 32;
inline constexpr std::uint32_t isWwan = 262144;
} // namespace ReachabilityFlags

/// The network that a Wi-Fi interface has joined.
struct WifiNetwork {
    std::optional<std::string> ssid;  ///< the network's name
    std::optional<std::string> bssid; ///< the access point's hardware address
};

/// The network's state at this moment. All operations run on the caller's thread, which may be any.
class MORVELLACINTO_EXPORT Network : public Interface {
public:
    /// `ReachabilityFlags` of the default route (the target 0.0.0.0), or nothing when they cannot
    /// be read. Sends no packet.
    [[nodiscard]] virtual std::optional<std::uint32_t> defaultRouteFlags() const = 0;
    /// Names of the Wi-Fi interfaces, or nothing without Wi-Fi.
    [[nodiscard]] virtual std::optional<std::vector<std::string>> supportedInterfaces() const = 0;
    /// The network that an interface is joined to, or nothing.
    [[nodiscard]] virtual std::optional<WifiNetwork>
    currentNetworkInfo(const std::string& interface) const = 0;
};

} // namespace morvellacinto::platform
