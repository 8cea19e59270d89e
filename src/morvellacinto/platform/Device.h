// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/platform/Interface.h"

#include <cstdint>
#include <optional>
#include <string>

namespace morvellacinto::platform {

/// Facts about the device, its user's locale and the application. All operations run on the
/// caller's thread, which may be any.
class MORVELLACINTO_EXPORT Device : public Interface {
public:
    /// Such as "sv_SE". Absent makes the base payload throw.
    [[nodiscard]] virtual std::optional<std::string> localeIdentifier() const = 0;
    /// Such as "17.5". Absent makes the base payload throw.
    [[nodiscard]] virtual std::optional<std::string> systemVersion() const = 0;
    /// The same for all applications of one vendor on this device.
    [[nodiscard]] virtual std::optional<Uuid> identifierForVendor() const = 0;
    /// Such as "com.example.host".
    [[nodiscard]] virtual std::optional<std::string> bundleIdentifier() const = 0;
    /// 0 to 1, or -1 when unknown.
    [[nodiscard]] virtual float batteryLevel() const = 0;
    /// 0 unknown, 1 unplugged, 2 charging, 3 full.
    [[nodiscard]] virtual std::int64_t batteryState() const = 0;
    /// The kernel's hardware identifier: a model code, not a marketing name. Absent leaves the base
    /// payload with its first four keys.
    [[nodiscard]] virtual std::optional<std::string> hardwareMachine() const = 0;
};

} // namespace morvellacinto::platform
