#pragma once

#include "morvellacinto/platform/Network.h"

namespace morvellacinto::native {

/// A network about which nothing is known: this adapter has no source for it.
class NativeNetwork final : public platform::Network {
public:
    [[nodiscard]] std::optional<std::uint32_t> defaultRouteFlags() const override;
    [[nodiscard]] std::optional<std::vector<std::string>> supportedInterfaces() const override;
    [[nodiscard]] std::optional<platform::WifiNetwork>
    currentNetworkInfo(const std::string& interface) const override;
};

} // namespace morvellacinto::native
