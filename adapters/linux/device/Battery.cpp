#include "Battery.h"

#include "bus/Bus.h"
#include "bus/BusValues.h"

#include <iterator>

namespace morvellacinto::native {

namespace {

// By UPower's number: a battery that waits on the charger is charging.
constexpr std::int64_t states[] = {0, 2, 1, 1, 3, 2, 1};

} // namespace

Battery batteryIn(const Object& displayDevice) {
    const auto percentage = doubleMember(displayDevice, "Percentage");
    if (!boolMember(displayDevice, "IsPresent").value_or(false) || !percentage ||
        !(*percentage >= 0 && *percentage <= 100)) {
        return {};
    }
    const auto state = integerMember(displayDevice, "State").value_or(0);
    const bool isKnown = state >= 0 && state < std::ssize(states);
    return {static_cast<float>(*percentage / 100), isKnown ? states[state] : 0};
}

Battery readBattery(Bus& bus) {
    return batteryIn(propertiesIn(bus.call(
        readProperties("org.freedesktop.UPower", "/org/freedesktop/UPower/devices/DisplayDevice",
                       "org.freedesktop.UPower.Device"))));
}

} // namespace morvellacinto::native
