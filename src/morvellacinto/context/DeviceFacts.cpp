// SPDX-License-Identifier: MIT
#include "morvellacinto/context/DeviceFacts.h"

#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/platform/Device.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/SystemVersion.h"
#include "morvellacinto/platform/Tracking.h"

namespace morvellacinto::KRNetworkManager {

std::optional<std::string> advertisingIdentifier() {
    const auto identifier = platform::current()->tracking().advertisingIdentifier();
    return identifier ? std::optional(identifier->text()) : std::nullopt;
}

bool advertisingIdentifierEnabled() {
    const auto platform = platform::current();
    return platform->systemVersion().isAtLeast(14, 0)
               ? platform->tracking().trackingAuthorizationStatus() ==
                     platform::TrackingAuthorization::authorized
               : platform->tracking().isAdvertisingTrackingEnabled();
}

std::int32_t locationAllowed() { return KRLocationManager::authorizationStatus(); }

std::string accuracyAuthorization() { return KRLocationManager::accuracyAuthorization(); }

std::optional<std::string> deviceModel() { return platform::current()->device().hardwareMachine(); }

} // namespace morvellacinto::KRNetworkManager
