// SPDX-License-Identifier: MIT
#pragma once

#include "bus/BusConnection.h"
#include "threads/StopSignal.h"

#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/platform/LocationService.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <morvellacinto/native/LocationError.h>

namespace morvellacinto::native {

class LocationPermission;

/// What a run tells: with neither, that permission has changed. After a failure it has ended.
struct LocationNews {
    std::optional<platform::LocationFix> fix = {};
    std::optional<KRError> failure = {};
};

[[nodiscard]] KRError locationError(LocationErrorCode code, std::string_view message);

/// One run of location updates at the service's finest accuracy, on a thread and a connection of
/// its own: the daemon forgets the client of a connection that is gone.
class GeoClueRun {
public:
    /// Called on the run's thread.
    using Tell = std::function<void(GeoClueRun& run, const LocationNews& news)>;

    /// Without a fix that is new enough for `timeout` it fails. `bus` and `permission` outlive the
    /// run. Throws std::system_error when no descriptor is left.
    GeoClueRun(Bus& bus, LocationPermission& permission, std::string desktopId,
               std::chrono::milliseconds timeout, Tell tell);

    /// Returns when it has ended.
    void run();
    /// Any thread.
    void stop() noexcept { stop_.raise(); }

private:
    void followUpdates();
    void locationUpdated(BusConnection& connection, const Array& paths);
    void propertiesChanged(const Array& change);
    void failWith(const BusReply& reply);
    void fail(LocationErrorCode code, std::string_view message);

    Bus& bus_;
    LocationPermission& permission_;
    const std::string desktopId_;
    const std::chrono::milliseconds timeout_;
    const Tell tell_;
    const std::chrono::duration<double> oldest_ =
        (std::chrono::system_clock::now() - platform::maximumFixAge).time_since_epoch();
    StopSignal stop_;
    // The run's thread's.
    BusConnection::Clock::time_point deadline_;
    bool isActive_ = true;
};

} // namespace morvellacinto::native
