#include "NativeTracking.h"

#include "WorkerPool.h"

#include <utility>

namespace morvellacinto::native {

NativeTracking::NativeTracking(WorkerPool& workers) : workers_(workers) {}

std::optional<Uuid> NativeTracking::advertisingIdentifier() const { return Uuid(); }

bool NativeTracking::isAdvertisingTrackingEnabled() const { return false; }

std::uint64_t NativeTracking::trackingAuthorizationStatus() const {
    return platform::TrackingAuthorization::denied;
}

void NativeTracking::requestTrackingAuthorization(Answer answer) {
    workers_.post(
        [answer = std::move(answer)] { answer(platform::TrackingAuthorization::denied); });
}

} // namespace morvellacinto::native
