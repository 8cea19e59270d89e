#include "morvellacinto/context/BasePayload.h"

#include "morvellacinto/context/DeviceFacts.h"
#include "morvellacinto/context/Reachability.h"
#include "morvellacinto/platform/Device.h"
#include "morvellacinto/platform/Guarded.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/SystemVersion.h"
#include "morvellacinto/platform/Telephony.h"
#include "morvellacinto/transport/ServiceEndpoint.h"

#include <algorithm>
#include <stdexcept>

namespace morvellacinto::KRNetworkManager {
namespace {

constexpr const char* platformName = "ios";
constexpr const char* bundleFallback = "se.kovra.no-bundle";
constexpr const char* technologyFallback = "unknown";
constexpr std::string_view payloadFailed = "payload failed";
constexpr std::size_t memberCount = 19;

template <class T>
T required(std::optional<T> answer, const char* what) {
    if (!answer) {
        throw std::runtime_error(std::string("the platform gives no ") + what);
    }
    return *std::move(answer);
}

std::optional<platform::Carrier> chooseCarrier(const platform::TelephonyInfo& telephony,
                                               bool hasServices) {
    if (!hasServices) {
        return telephony.subscriberCellularProvider();
    }
    if (const auto carriers = telephony.serviceSubscriberCellularProviders()) {
        const auto named =
            std::find_if(carriers->begin(), carriers->end(),
                         [](const auto& carrier) { return carrier && carrier->carrierName; });
        if (named != carriers->end()) {
            return *named;
        }
    }
    const auto carriers = telephony.serviceSubscriberCellularProviders();
    return carriers && !carriers->empty() ? carriers->front() : std::nullopt;
}

std::string chooseTechnology(const platform::TelephonyInfo& telephony, bool hasServices) {
    if (!hasServices) {
        return telephony.currentRadioAccessTechnology().value_or(technologyFallback);
    }
    // Read once to see whether there is one and again for its text, as the carriers are.
    const auto first = [&telephony] {
        const auto technologies = telephony.serviceCurrentRadioAccessTechnology();
        return technologies && !technologies->empty() ? std::optional(technologies->front())
                                                      : std::nullopt;
    };
    return first() ? first().value_or(technologyFallback) : technologyFallback;
}

// Everything behind the first four members.
void addDetails(Object& payload, platform::Platform& platform) {
    platform::Device& device = platform.device();
    payload.set("vendorId", device.identifierForVendor().value_or(Uuid()).text());
    payload.set("bundle", device.bundleIdentifier().value_or(bundleFallback));

    const auto telephony = platform.telephony().makeInfo();
    const bool hasServices = platform.systemVersion().isAtLeast(12, 0);
    const auto carrier = chooseCarrier(*telephony, hasServices).value_or(platform::Carrier());
    const std::string technology = chooseTechnology(*telephony, hasServices);

    payload.set("advertId", required(advertisingIdentifier(), "advertising identifier"));
    payload.set("advertIdEnabled", advertisingIdentifierEnabled());
    payload.set("device", required(deviceModel(), "hardware model"));
    payload.set("carrierName", carrier.carrierName.value_or(""));
    payload.set("isoCountryCode", carrier.isoCountryCode.value_or(""));
    payload.set("mobileNetworkCode", carrier.mobileNetworkCode.value_or(""));
    payload.set("currentRadioAccessTechnology", technology);
    payload.set("batteryLevel", device.batteryLevel());
    payload.set("batteryState", device.batteryState());
    payload.set("networks", currentNetworks());
    payload.set("locationState", locationAllowed());
    payload.set("accuracyAuthorization", accuracyAuthorization());
    payload.set("connection", static_cast<std::int64_t>(currentReachabilityStatus()));
}

Object firstMembers(const Object& object, std::size_t count) {
    Object first;
    for (const Object::Member* member = object.begin(); first.size() < count; ++member) {
        first.set(member->key(), member->value);
    }
    return first;
}

} // namespace

Object basePayload() {
    const auto platform = platform::current();
    Object payload;
    payload.reserve(memberCount);
    payload.set("locale", required(platform->device().localeIdentifier(), "locale identifier"));
    payload.set("system", required(platform->device().systemVersion(), "system version"));
    payload.set("api", API_VERSION);
    payload.set("platform", platformName);
    const std::size_t baseCount = payload.size();
    const bool complete = platform::guarded(platform->developerLog(), payloadFailed,
                                            [&] { addDetails(payload, *platform); });
    return complete ? payload : firstMembers(payload, baseCount);
}

} // namespace morvellacinto::KRNetworkManager
