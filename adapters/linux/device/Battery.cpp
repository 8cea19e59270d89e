#include "Battery.h"

#include "bus/Bus.h"
#include "bus/BusValues.h"

namespace morvellacinto::native {

namespace {

std::int64_t stateOf(std::int64_t deviceState) {
    enum { charging = 1, discharging, empty, full, pendingCharge, pendingDischarge };
    switch (deviceState) {
    case discharging:
    case empty:
    case pendingDischarge:
        return 1;
    case charging:
    case pendingCharge: // on the charger, which waits with the charge
        return 2;
    case full:
        return 3;
    default:
        return 0;
    }
}

} // namespace

Battery batteryIn(const Object& displayDevice) {
    const auto percentage = doubleMember(displayDevice, "Percentage");
    if (!boolMember(displayDevice, "IsPresent").value_or(false) || !percentage ||
        !(*percentage >= 0 && *percentage <= 100)) {
        return {};
    }
    return {static_cast<float>(*percentage / 100),
            stateOf(integerMember(displayDevice, "State").value_or(0))};
}

Battery readBattery(Bus& bus) {
    return batteryIn(propertiesIn(bus.call(
        readProperties("org.freedesktop.UPower", "/org/freedesktop/UPower/devices/DisplayDevice",
                       "org.freedesktop.UPower.Device"))));
}

} // namespace morvellacinto::native
