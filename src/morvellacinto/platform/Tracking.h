// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/platform/Interface.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace morvellacinto::platform {

namespace TrackingAuthorization {
inline constexpr std::uint64_t notDetermined = 0;
inline constexpr std::uint64_t restricted = 1;
inline constexpr std::uint64_t denied = 2;
inline constexpr std::uint64_t authorized = 3;
} // namespace TrackingAuthorization

/// The advertising identifier and the user's permission to be tracked.
class MORVELLACINTO_EXPORT Tracking : public Interface {
public:
    using Answer = std::function<void(std::uint64_t status)>; ///< a `TrackingAuthorization`

    /// Any thread. Absent leaves the base payload with its first four keys.
    [[nodiscard]] virtual std::optional<Uuid> advertisingIdentifier() const = 0;
    /// For systems before 14.0. Any thread.
    [[nodiscard]] virtual bool isAdvertisingTrackingEnabled() const = 0;
    /// From 14.0 on: a `TrackingAuthorization`. Any thread.
    [[nodiscard]] virtual std::uint64_t trackingAuthorizationStatus() const = 0;
    /// Asks the user and returns at once; `answer` is called once, on an arbitrary thread. The
    /// status has changed from 0 before that.
    virtual void requestTrackingAuthorization(Answer answer) = 0;
};

} // namespace morvellacinto::platform
