#include "LocationPermission.h"

#include "basics/SystemFiles.h"

#include "morvellacinto/platform/LocationService.h"

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

namespace morvellacinto::native {

namespace {
constexpr std::chrono::seconds refusalHolds(60);
}

std::function<bool()> geoClueSearch(const std::filesystem::path& root) {
    const bool isBusNamed = !environment("DBUS_SYSTEM_BUS_ADDRESS").empty();
    std::vector<std::filesystem::path> services;
    std::istringstream folders("/usr/local/share:/usr/share:/lib:/etc:/run:" +
                               environment("XDG_DATA_DIRS"));
    for (std::string folder; std::getline(folders, folder, ':');) {
        services.push_back(root / std::filesystem::path(folder).relative_path() /
                           "dbus-1/system-services/org.freedesktop.GeoClue2.service");
    }
    return [root, isBusNamed, services] {
        const auto policy =
            readKey(root / ".flatpak-info", "System Bus Policy", "org.freedesktop.GeoClue2");
        return (isBusNamed || fileExists(root / "run/dbus/system_bus_socket")) &&
               (policy == "talk" || policy == "own" ||
                std::any_of(services.begin(), services.end(), fileExists));
    };
}

LocationPermission::LocationPermission(std::function<bool()> serviceExists,
                                       std::function<Clock::time_point()> now)
    : serviceExists_(std::move(serviceExists)), now_(std::move(now)) {}

std::int32_t LocationPermission::authorizationStatus() const {
    if (!canBeUsed()) {
        return platform::LocationAuthorization::notDetermined;
    }
    return holds(Refusal::denied) ? platform::LocationAuthorization::denied
                                  : platform::LocationAuthorization::whenInUse;
}

bool LocationPermission::servicesEnabled() const {
    return canBeUsed() && !holds(Refusal::switchedOff);
}

void LocationPermission::note(Refusal refusal) {
    const std::lock_guard lock(mutex_);
    until_.at(static_cast<std::size_t>(refusal)) = now_() + refusalHolds;
}

bool LocationPermission::noteAllowed() {
    const std::lock_guard lock(mutex_);
    const auto latest = *std::max_element(until_.begin(), until_.end());
    until_.fill({});
    return now_() < latest;
}

bool LocationPermission::holds(Refusal refusal) const {
    const std::lock_guard lock(mutex_);
    return now_() < until_.at(static_cast<std::size_t>(refusal));
}

bool LocationPermission::canBeUsed() const {
    if (!isKnownToExist_) {
        isKnownToExist_ = serviceExists_();
    }
    return isKnownToExist_ && !holds(Refusal::absent);
}

} // namespace morvellacinto::native
