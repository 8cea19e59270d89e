// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Date.h"
#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/platform/Interface.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace morvellacinto::platform {

/// One measurement of where the device is.
struct LocationFix {
    double latitude = 0;           ///< degrees, north positive
    double longitude = 0;          ///< degrees, east positive
    double speed = -1;             ///< metres a second; negative when unknown
    double course = -1;            ///< degrees clockwise from north; negative when unknown
    std::optional<Date> time = {}; ///< when it was measured, when known
    std::optional<double> horizontalAccuracy = {}; ///< radius in metres, when known
};

/// A fix older than this when updates start is not handed out: a newer one is waited for.
inline constexpr std::chrono::seconds maximumFixAge{90};

/// Authorization statuses that a location service reports.
namespace LocationAuthorization {
inline constexpr std::int32_t notDetermined = 0;
inline constexpr std::int32_t restricted = 1;
inline constexpr std::int32_t denied = 2;
inline constexpr std::int32_t always = 3;
inline constexpr std::int32_t whenInUse = 4;
} // namespace LocationAuthorization

namespace AccuracyAuthorization {
inline constexpr std::int32_t full = 0;
inline constexpr std::int32_t reduced = 1;
} // namespace AccuracyAuthorization

class LocationService;

/// Receives notifications on the main queue, never inside the creation of the service,
/// `setDelegate` or `startUpdatingLocation`.
class MORVELLACINTO_EXPORT LocationServiceDelegate : public Interface {
public:
    /// The status, or whether location is switched on, has changed.
    virtual void locationManagerDidChangeAuthorization(LocationService& manager) = 0;
    /// Oldest first.
    virtual void didUpdateLocations(LocationService& manager,
                                    const std::vector<LocationFix>& locations) = 0;
    /// In place of fixes.
    virtual void didFailWithError(LocationService& manager, const KRError& error) = 0;
};

/// One client of the device's location service. Created by `LocationServices::makeService`.
class MORVELLACINTO_EXPORT LocationService : public Interface {
public:
    /// The delegate must outlive the service or be replaced by null. Main thread, or before the
    /// service is first started.
    virtual void setDelegate(LocationServiceDelegate* delegate) = 0;
    /// Main thread. Fixes within `maximumFixAge`, or a failure when none has come within the
    /// platform's time-out, reach the delegate until updates are stopped. A start while they run
    /// has no effect. Both return at once. @{
    virtual void startUpdatingLocation() = 0;
    virtual void stopUpdatingLocation() = 0; ///@}
    /// A `LocationAuthorization`, or a later number of the platform's. Any thread, from what is
    /// known already: never waits.
    [[nodiscard]] virtual std::int32_t authorizationStatus() const = 0;
    /// An `AccuracyAuthorization`. Any thread, never waits.
    [[nodiscard]] virtual std::int32_t accuracyAuthorization() const = 0;
};

/// What the location service offers without a client.
class MORVELLACINTO_EXPORT LocationServices : public Interface {
public:
    /// A client with the platform's default settings. Any thread.
    [[nodiscard]] virtual std::shared_ptr<LocationService> makeService() = 0;
    /// Whether the user has location switched on for the device. Any thread, never waits.
    [[nodiscard]] virtual bool locationServicesEnabled() const = 0;
    /// The status as systems before 14.0 tell it. Any thread, never waits.
    [[nodiscard]] virtual std::int32_t authorizationStatus() const = 0;
};

} // namespace morvellacinto::platform
