// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"

#include <cstdint>
#include <optional>
#include <string>

namespace morvellacinto {

/// Single facts about the device and what its user permits, asked of the platform afresh on every
/// call. Any thread; each throws std::logic_error when no platform is installed.
namespace KRNetworkManager {

/// The advertising identifier, 36 upper-case characters, or nothing when the platform gives none.
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<std::string> advertisingIdentifier();

/// Whether the user lets applications track: from system version 14.0 on, whether tracking is
/// authorized; before, the platform's older switch. Never asks the user.
[[nodiscard]] MORVELLACINTO_EXPORT bool advertisingIdentifierEnabled();

/// The raw location authorization status 0 to 4; in spite of its name no yes or no.
[[nodiscard]] MORVELLACINTO_EXPORT std::int32_t locationAllowed();

/// "reduced" or "full".
[[nodiscard]] MORVELLACINTO_EXPORT std::string accuracyAuthorization();

/// The kernel's hardware machine identifier, or nothing when the platform gives none.
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<std::string> deviceModel();

} // namespace KRNetworkManager
} // namespace morvellacinto
