#pragma once

// Read NativeLocation.h, GeoClueClient.h, GeoClueRun.h, then LocationPermission.h.

#include "LocationPermission.h"

#include "morvellacinto/platform/LocationService.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace morvellacinto::native {

class Bus;
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
    [[nodiscard]] LocationPermission& permission() { return permission_; }
    [[nodiscard]] const LocationOptions& options() const { return options_; }
    [[nodiscard]] Bus& bus() const { return bus_; }
    void postToMain(std::function<void()> block) const;
    /// Throws std::system_error when no thread can be made.
    void startThread(std::function<void()> block);

    /// No thread is started from now on.
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
