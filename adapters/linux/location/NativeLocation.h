#pragma once

// Read NativeLocation.h, GeoClueClient.h, GeoClueRun.h, LocationPermission.h, GeoClueSearch.cpp.

#include "LocationPermission.h"

#include "morvellacinto/platform/LocationService.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::native {

class Bus;
class GeoClueClient;
class MainQueue;
class WorkerPool;

/// Tells, from files below `root`, whether there is a system bus that can start GeoClue or to which
/// a sandbox lets the application talk. Reads the environment now and files when it is called.
[[nodiscard]] std::function<bool()> geoClueSearch(const std::filesystem::path& root = "/");

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
    [[nodiscard]] bool locationServicesEnabled() const override;
    [[nodiscard]] std::int32_t authorizationStatus() const override;

    // For the clients, on any thread.
    [[nodiscard]] LocationPermission& permission() { return permission_; }
    [[nodiscard]] const LocationOptions& options() const { return options_; }
    [[nodiscard]] Bus& bus() const { return bus_; }
    void postToMain(std::function<void()> block) const;
    /// Throws std::system_error when no thread can be made.
    void startThread(std::function<void()> block);
    /// Main thread.
    void tellAuthorizationChange();

    /// No thread is started from now on.
    void shutdown();

private:
    const std::weak_ptr<MainQueue> mainQueue_;
    Bus& bus_;
    const LocationOptions options_;
    LocationPermission permission_;
    std::mutex mutex_;
    WorkerPool* workers_;
    std::vector<std::weak_ptr<GeoClueClient>> clients_;
};

} // namespace morvellacinto::native
