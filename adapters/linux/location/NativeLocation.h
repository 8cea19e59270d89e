#pragma once

#include "GeoClueFiles.h"

#include "morvellacinto/platform/LocationService.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace morvellacinto::native {

class Bus;
class LocationContext;
class MainQueue;

struct LocationOptions {
    /// GeoClue knows the application by it; without one there is no location.
    std::function<std::optional<std::string>()> bundleIdentifier;
    /// How long to wait for a fix.
    std::chrono::milliseconds timeout = std::chrono::seconds(30);
    GeoClueFiles files = GeoClueFiles();
};

/// Location by GeoClue. Whether it may be used is first told by the files of the system, then by
/// what the daemon answers.
class NativeLocation final : public platform::LocationServices {
public:
    /// Shared, since a client may outlive the platform.
    NativeLocation(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<Bus> bus,
                   LocationOptions options);
    ~NativeLocation() override;

    [[nodiscard]] std::shared_ptr<platform::LocationService> makeService() override;
    [[nodiscard]] bool locationServicesEnabled() const override;
    [[nodiscard]] std::int32_t authorizationStatus() const override;

private:
    const std::shared_ptr<LocationContext> context_;
};

} // namespace morvellacinto::native
