#include "LocationPermission.h"

#include "morvellacinto/platform/LocationService.h"

#include <algorithm>
#include <utility>

namespace morvellacinto::native {

namespace {
constexpr std::chrono::seconds refusalHolds(60);
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
