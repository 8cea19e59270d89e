#pragma once

#include "morvellacinto/foundation/Object.h"

#include <cstdint>

namespace morvellacinto::native {

class Bus;

struct Battery {
    float level = -1;       ///< 0 to 1, or -1 when unknown
    std::int64_t state = 0; ///< 0 unknown, 1 unplugged, 2 charging, 3 full
};

/// What the properties of UPower's display device tell; unknown when no battery is present.
[[nodiscard]] Battery batteryIn(const Object& displayDevice);

/// Asks UPower for the battery that it would show to the user.
[[nodiscard]] Battery readBattery(Bus& bus);

} // namespace morvellacinto::native
