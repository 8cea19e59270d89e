// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/GeoTags.h"

#include "morvellacinto/audience/AudienceSettings.h"
#include "morvellacinto/audience/Collection.h"
#include "morvellacinto/audience/RoundToN.h"
#include "morvellacinto/context/BasePayload.h"
#include "morvellacinto/location/KRLocationManager.h"
#include "morvellacinto/platform/AssertionHandler.h"
#include "morvellacinto/platform/Diagnostics.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/SystemVersion.h"
#include "morvellacinto/platform/Tracking.h"

#include <cmath>
#include <limits>

namespace morvellacinto {
namespace {

using SharedSettings = std::shared_ptr<AudienceSettings>;

constexpr const char* waiterKey = "se.kovra.geotag";
constexpr const char* assertionFunction = "-[KRAudienceManager kovraTagsWithCompletion:]";
constexpr const char* assertionFile = "KRAudienceManager";
constexpr int assertionLine = 115;
constexpr const char* assertionText = "kovraTagsWithCompletion has to be called on the main thread";

// Towards zero; a number beyond the range becomes its nearest end, not-a-number becomes 0.
std::int32_t truncated(float number) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(number)) {
        return 0;
    }
    if (number >= 0x1p31F) {
        return Limits::max();
    }
    return number < -0x1p31F ? Limits::min() : static_cast<std::int32_t>(number);
}

void addLocation(Object& payload, const platform::LocationFix& fix, float geoFixDecimals) {
    const std::int32_t kept = truncated(geoFixDecimals);
    const auto decimals = static_cast<std::uint32_t>(kept);
    platform::tell<platform::LocationCome>(kept);
    payload.set("lat", roundToN(static_cast<float>(fix.latitude), decimals));
    payload.set("lon", roundToN(static_cast<float>(fix.longitude), decimals));
    payload.set("speed", fix.speed);
    payload.set("course", fix.course);
}

// The payload is built in the background, for the platform may take its time; the collection runs
// on the main queue.
void collectInBackground(const SharedSettings& settings, const HeldCompletion& completion,
                         const std::optional<platform::LocationFix>& fix) {
    platform::current()->dispatch().asyncGlobal([settings, completion, fix] {
        Object payload = KRNetworkManager::basePayload();
        if (fix) {
            addLocation(payload, *fix, settings->geoFixDecimals);
        }
        platform::current()->dispatch().asyncMain([settings, completion, payload]() mutable {
            collectAudience(*settings, payload, completion ? *completion : nullptr, false);
        });
    });
}

void askForTrackingIfWanted(platform::Platform& platform, const SharedSettings& settings,
                            const HeldCompletion& completion) {
    if (!platform.systemVersion().isAtLeast(14, 0) || !settings->requestTrackingAuthorization ||
        platform.tracking().trackingAuthorizationStatus() !=
            platform::TrackingAuthorization::notDetermined) {
        return;
    }
    platform::tell<platform::PermissionAsked>();
    platform.tracking().requestTrackingAuthorization([settings, completion](std::uint64_t status) {
        platform::tell<platform::PermissionAnswered>(status);
        platform::current()->dispatch().asyncMain(
            [settings, completion] { fetchGeoTags(settings, completion); });
    });
}

} // namespace

void fetchGeoTags(const SharedSettings& settings, const HeldCompletion& completion) {
    const auto platform = platform::current();
    askForTrackingIfWanted(*platform, settings, completion);
    if (!KRLocationManager::locationServiceEnabled()) {
        collectInBackground(settings, completion, std::nullopt);
        return;
    }
    if (!platform->dispatch().isMainThread()) {
        platform->assertionHandler().handleFailureInFunction(assertionFunction, assertionFile,
                                                             assertionLine, assertionText);
    }
    KRLocationManager::shared().addLocationUpdateBlock(
        [settings, completion](const std::optional<platform::LocationFix>& fix,
                               const std::optional<KRError>& error) {
            if (!fix && error) {
                platform::tell<platform::ErrorUnheard>("a location; zeros are uploaded", *error);
            }
            collectInBackground(settings, completion,
                                fix.value_or(platform::LocationFix{0, 0, 0, 0}));
        },
        waiterKey);
}

} // namespace morvellacinto
