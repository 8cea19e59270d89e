// SPDX-License-Identifier: MIT
#pragma once

// Read NativeLocation.h, GeoClueClient.h, GeoClueRun.h, then LocationPermission.h.

#include "GeoClueRun.h"
#include "LocationPermission.h"

#include "morvellacinto/platform/LocationService.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace morvellacinto::native {

class MainQueue;
class WorkerPool;

struct LocationOptions {
    /// GeoClue knows the application by it; without one there is no location.
    std::optional<std::string> bundleIdentifier;
    /// How long to wait for a fix.
    std::chrono::milliseconds timeout = std::chrono::seconds(30);
    std::function<bool()> serviceExists = geoClueSearch();
};

/// Location by GeoClue. Its clients share it and may outlive the platform, without a descriptor or
/// a thread of it.
class NativeLocation final : public platform::LocationServices,
                             public std::enable_shared_from_this<NativeLocation> {
public:
    /// `bus` and `workers` are used until `shutdown`.
    NativeLocation(const std::shared_ptr<MainQueue>& mainQueue, Bus& bus, WorkerPool& workers,
                   LocationOptions options);

    [[nodiscard]] std::shared_ptr<platform::LocationService> makeService() override;
    [[nodiscard]] bool locationServicesEnabled() const override {
        return permission_.servicesEnabled();
    }
    [[nodiscard]] std::int32_t authorizationStatus() const override {
        return permission_.authorizationStatus();
    }

    // For the clients, on any thread.
    [[nodiscard]] std::chrono::milliseconds timeout() const { return options_.timeout; }
    void postToMain(std::function<void()> block) const;
    /// Throws a std::exception without a thread, a descriptor or a bundle identifier.
    std::shared_ptr<GeoClueRun> start(std::chrono::milliseconds timeout, GeoClueRun::Tell tell);

    /// No run is started from now on.
    void shutdown();

private:
    void askAgain();

    const std::weak_ptr<MainQueue> mainQueue_;
    Bus& bus_;
    const LocationOptions options_;
    LocationPermission permission_;
    std::mutex mutex_;
    WorkerPool* workers_;
};

} // namespace morvellacinto::native
