#pragma once

#include "morvellacinto/platform/Network.h"

#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::native {

class Bus;

/// The Wi-Fi devices that NetworkManager knows. Operations wait for the bus, at most for three
/// time-outs.
class WifiNetworks {
public:
    explicit WifiNetworks(Bus& bus);

    /// In NetworkManager's order; nothing when it knows no Wi-Fi device.
    [[nodiscard]] std::optional<std::vector<std::string>> interfaces() const;
    /// The access point in use; nothing without one. Its name is absent when it is hidden.
    [[nodiscard]] std::optional<platform::WifiNetwork>
    networkOf(const std::string& interface) const;

private:
    Bus& bus_;
};

} // namespace morvellacinto::native
