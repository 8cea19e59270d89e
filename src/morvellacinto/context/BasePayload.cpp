// SPDX-License-Identifier: MIT
#include "morvellacinto/context/BasePayload.h"

#include "morvellacinto/context/DeviceFacts.h"
#include "morvellacinto/context/Reachability.h"
#include "morvellacinto/foundation/Representation.h"
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

// The members' names, made once. Those of one payload differ, so that adding one needs no look-up.
struct Names {
    Value locale{"locale"};
    Value system{"system"};
    Value api{"api"};
    Value platform{"platform"};
    Value vendorId{"vendorId"};
    Value bundle{"bundle"};
    Value advertId{"advertId"};
    Value advertIdEnabled{"advertIdEnabled"};
    Value device{"device"};
    Value carrierName{"carrierName"};
    Value isoCountryCode{"isoCountryCode"};
    Value mobileNetworkCode{"mobileNetworkCode"};
    Value currentRadioAccessTechnology{"currentRadioAccessTechnology"};
    Value batteryLevel{"batteryLevel"};
    Value batteryState{"batteryState"};
    Value networks{"networks"};
    Value locationState{"locationState"};
    Value accuracyAuthorization{"accuracyAuthorization"};
    Value connection{"connection"};
};

const Names& names() {
    static const auto& made = *new Names;
    return made;
}

void add(Object& payload, const Value& name, Value value) {
    ValueAccess::add(payload, name, std::move(value));
}

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
    add(payload, names().vendorId, device.identifierForVendor().value_or(Uuid()).text());
    add(payload, names().bundle, device.bundleIdentifier().value_or(bundleFallback));

    const auto telephony = platform.telephony().makeInfo();
    const bool hasServices = platform.systemVersion().isAtLeast(12, 0);
    const auto carrier = chooseCarrier(*telephony, hasServices).value_or(platform::Carrier());
    const std::string technology = chooseTechnology(*telephony, hasServices);

    add(payload, names().advertId, required(advertisingIdentifier(), "advertising identifier"));
    add(payload, names().advertIdEnabled, advertisingIdentifierEnabled());
    add(payload, names().device, required(deviceModel(), "hardware model"));
    add(payload, names().carrierName, carrier.carrierName.value_or(""));
    add(payload, names().isoCountryCode, carrier.isoCountryCode.value_or(""));
    add(payload, names().mobileNetworkCode, carrier.mobileNetworkCode.value_or(""));
    add(payload, names().currentRadioAccessTechnology, technology);
    add(payload, names().batteryLevel, device.batteryLevel());
    add(payload, names().batteryState, device.batteryState());
    add(payload, names().networks, currentNetworks());
    add(payload, names().locationState, locationAllowed());
    add(payload, names().accuracyAuthorization, accuracyAuthorization());
    add(payload, names().connection, currentReachabilityStatus());
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
    add(payload, names().locale,
        required(platform->device().localeIdentifier(), "locale identifier"));
    add(payload, names().system, required(platform->device().systemVersion(), "system version"));
    add(payload, names().api, API_VERSION);
    add(payload, names().platform, platformName);
    const std::size_t baseCount = payload.size();
    const bool complete = platform::guarded(&platform->developerLog(), payloadFailed,
                                            [&] { addDetails(payload, *platform); });
    return complete ? payload : firstMembers(payload, baseCount);
}

} // namespace morvellacinto::KRNetworkManager
