// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Uuid.h"

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

namespace morvellacinto {

/// The configuration of a manager, shared with the work that it has in flight.
struct AudienceSettings {
    mutable std::mutex mutex; // of the token and the tracking identifier
    std::optional<Uuid> apiToken;
    std::optional<std::string> trackId;
    std::atomic<float> geoFixDecimals;
    std::atomic<bool> requestTrackingAuthorization = false;

    [[nodiscard]] std::optional<Uuid> currentApiToken() const {
        const std::lock_guard lock(mutex);
        return apiToken;
    }
    [[nodiscard]] std::optional<std::string> currentTrackId() const {
        const std::lock_guard lock(mutex);
        return trackId;
    }
};

} // namespace morvellacinto
