#pragma once

#include "morvellacinto/platform/Network.h"

#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::native {

class Bus;

// The Wi-Fi devices that NetworkManager knows; each look is a question to the bus.

/// In NetworkManager's order; nothing when it knows no Wi-Fi device.
[[nodiscard]] std::optional<std::vector<std::string>> wifiInterfaces(Bus& bus);
/// The access point in use; nothing without one. Its name is absent when it is hidden.
[[nodiscard]] std::optional<platform::WifiNetwork> wifiNetworkOf(Bus& bus,
                                                                 const std::string& interface);

} // namespace morvellacinto::native
