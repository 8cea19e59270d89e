// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Array.h"

#include <cstdint>

namespace morvellacinto {

/// The kind of route that the device has.
enum KRNetworkStatus : std::int64_t {
    KRNotReachable = 0,
    KRReachableViaWiFi = 1, ///< or another route that is not cellular
    KRReachableViaWWAN = 2,
};

/// How the device is connected at this moment. Any thread; blocks while the platform is asked.
namespace KRNetworkManager {

/// What a set of `platform::ReachabilityFlags` means. Any thread, without a platform.
[[nodiscard]] MORVELLACINTO_EXPORT KRNetworkStatus
networkStatusForFlags(std::uint32_t flags) noexcept;

/// The status of the default route; `KRNotReachable` when it cannot be read. Throws
/// std::logic_error when no platform is installed.
[[nodiscard]] MORVELLACINTO_EXPORT KRNetworkStatus currentReachabilityStatus();

/// The Wi-Fi networks that the device is joined to, one object with "ssid" and "bssid" each, in the
/// order of the interfaces; an interface without both is left out. Throws std::logic_error when no
/// platform is installed.
[[nodiscard]] MORVELLACINTO_EXPORT Array currentNetworks();

} // namespace KRNetworkManager
} // namespace morvellacinto
