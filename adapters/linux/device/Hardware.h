// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Object.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

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

/// The machine's model: from the device tree, else from the firmware's tables, else as hostnamed
/// tells it. `root` is the folder that the system's files are looked up in.
[[nodiscard]] std::optional<std::string> findHardwareModel(Bus& bus,
                                                           const std::filesystem::path& root);

} // namespace morvellacinto::native
