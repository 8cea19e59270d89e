#include "LocationPermission.h"

#include "morvellacinto/platform/LocationService.h"

#include <utility>

namespace morvellacinto::native {

LocationPermission::LocationPermission(std::function<Clock::time_point()> now)
    : now_(std::move(now)) {}

std::int32_t LocationPermission::authorizationStatus() const {
    const std::lock_guard lock(mutex_);
    if (!canBeUsed_ || holds(absentUntil_)) {
        return platform::LocationAuthorization::notDetermined;
    }
    return holds(deniedUntil_) ? platform::LocationAuthorization::denied
                               : platform::LocationAuthorization::whenInUse;
}

bool LocationPermission::servicesEnabled() const {
    const std::lock_guard lock(mutex_);
    return canBeUsed_ && !holds(absentUntil_) && !holds(switchedOffUntil_);
}

bool LocationPermission::isUsable() const {
    const std::lock_guard lock(mutex_);
    return canBeUsed_;
}

bool LocationPermission::noteUsable() {
    const std::lock_guard lock(mutex_);
    return !std::exchange(canBeUsed_, true);
}

void LocationPermission::noteAbsent() {
    const std::lock_guard lock(mutex_);
    absentUntil_ = now_() + refusalHolds;
}

void LocationPermission::noteDenied() {
    const std::lock_guard lock(mutex_);
    deniedUntil_ = now_() + refusalHolds;
}

void LocationPermission::noteSwitchedOff() {
    const std::lock_guard lock(mutex_);
    switchedOffUntil_ = now_() + refusalHolds;
}

bool LocationPermission::noteAllowed() {
    const std::lock_guard lock(mutex_);
    const bool isNews = holds(absentUntil_) || holds(deniedUntil_) || holds(switchedOffUntil_);
    absentUntil_ = deniedUntil_ = switchedOffUntil_ = Clock::time_point::min();
    return isNews;
}

} // namespace morvellacinto::native
