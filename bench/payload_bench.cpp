// SPDX-License-Identifier: MIT
// Describing the device to the service, on the scripted phone.

#include "Comparison.h"

#include "morvellacinto/context/BasePayload.h"
#include "morvellacinto/scripted/ScriptedPhone.h"

namespace morvellacinto::bench {
namespace {

// Everything that the payload asks the platform for, as often as it does, and nothing made of it.
void lookUp(platform::Platform& platform, const platform::LocationService& location) {
    const auto use = [](auto answer) { benchmark::DoNotOptimize(answer); };
    const platform::Device& device = platform.device();
    use(device.localeIdentifier());
    use(device.systemVersion());
    use(device.identifierForVendor());
    use(device.bundleIdentifier());
    use(device.hardwareMachine());
    use(device.batteryLevel());
    use(device.batteryState());
    const auto telephony = platform.telephony().makeInfo();
    use(platform.systemVersion().isAtLeast(12, 0));
    use(telephony->serviceSubscriberCellularProviders());
    use(telephony->serviceCurrentRadioAccessTechnology());
    use(telephony->serviceCurrentRadioAccessTechnology());
    use(platform.tracking().advertisingIdentifier());
    use(platform.systemVersion().isAtLeast(14, 0));
    use(platform.tracking().trackingAuthorizationStatus());
    const auto interfaces = platform.network().supportedInterfaces();
    for (const std::string& interface : *interfaces) {
        use(platform.network().currentNetworkInfo(interface));
    }
    use(platform.network().defaultRouteFlags());
    use(platform.systemVersion().isAtLeast(14, 0));
    use(location.authorizationStatus());
    use(platform.systemVersion().isAtLeast(14, 0));
    use(location.accuracyAuthorization());
}

// An object with the members of `other`, none of which it shares.
Object rebuilt(const Object& other) {
    Object made;
    made.reserve(other.size());
    for (const Object::Member& member : other) {
        made.set(member.key(),
                 member.value.isString() ? Value(member.value.asString()) : Value(member.value));
    }
    return made;
}

} // namespace
} // namespace morvellacinto::bench

int main(int count, char** arguments) {
    using namespace morvellacinto;
    const auto phone = scripted::ScriptedPhone::create();
    platform::install(phone);
    const auto location = phone->locationServices().makeService();
    const Object payload = KRNetworkManager::basePayload();
    bench::compare("base payload",
                   {bench::repeated("ours", [] { return KRNetworkManager::basePayload(); }),
                    bench::repeated(
                        "its look-ups", [&] { bench::lookUp(*phone, *location); }, 1.2),
                    bench::repeated("the look-ups, and an object of such members", [&] {
                        bench::lookUp(*phone, *location);
                        return bench::rebuilt(payload);
                    })});
    return bench::runComparisons(count, arguments);
}
