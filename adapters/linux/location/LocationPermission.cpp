// SPDX-License-Identifier: MIT
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
                                       std::function<Clock::time_point()> now,
                                       std::function<void()> askAgain)
    : serviceExists_(std::move(serviceExists)), now_(std::move(now)),
      askAgain_(std::move(askAgain)) {}

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
    nextQuestion_ = now_() + questionInterval;
}

bool LocationPermission::noteAllowed() {
    const std::lock_guard lock(mutex_);
    const auto latest = *std::max_element(until_.begin(), until_.end());
    until_.fill({});
    return now_() < latest;
}

bool LocationPermission::holds(Refusal refusal) const {
    std::unique_lock lock(mutex_);
    const auto now = now_();
    const bool doesHold = now < until_.at(static_cast<std::size_t>(refusal));
    // For denied alone the service would ask the user again.
    if (now >= nextQuestion_ && now < std::max(until_.front(), until_.back())) {
        nextQuestion_ = now + questionInterval;
        lock.unlock();
        askAgain_();
    }
    return doesHold;
}

bool LocationPermission::canBeUsed() const {
    if (!isKnownToExist_) {
        isKnownToExist_ = serviceExists_();
    }
    return isKnownToExist_ && !holds(Refusal::absent);
}

} // namespace morvellacinto::native
