#pragma once

#include "LocationPermission.h"
#include "NativeLocation.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::native {

class BusConnection;
class GeoClueClient;

/// What the clients of the location service share. Any thread unless told otherwise.
class LocationContext : public std::enable_shared_from_this<LocationContext> {
public:
    LocationContext(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<Bus> bus,
                    LocationOptions options);

    /// Until a service is known, a call looks at the files of the system, every two seconds at
    /// most. When they do not tell of one, the bus is asked, and the clients hear of it should it
    /// answer yes.
    [[nodiscard]] LocationPermission& permission();
    [[nodiscard]] const std::optional<std::string>& bundleIdentifier();
    [[nodiscard]] std::chrono::milliseconds timeout() const { return options_.timeout; }
    [[nodiscard]] MainQueue& mainQueue() const { return *mainQueue_; }
    [[nodiscard]] Bus& bus() const { return *bus_; }

    void add(const std::shared_ptr<GeoClueClient>& client);
    /// Main thread: every client's delegate hears of it.
    void tellAuthorizationChange();

private:
    void lookForService();
    void askBus(BusConnection& connection);
    void serviceFound();

    const std::shared_ptr<MainQueue> mainQueue_;
    const std::shared_ptr<Bus> bus_;
    const LocationOptions options_;
    std::once_flag bundleSeen_;
    std::optional<std::string> bundleIdentifier_;
    LocationPermission permission_;
    std::mutex mutex_;
    std::optional<LocationPermission::Clock::time_point> lastLook_;
    std::vector<std::weak_ptr<GeoClueClient>> clients_;
};

} // namespace morvellacinto::native
