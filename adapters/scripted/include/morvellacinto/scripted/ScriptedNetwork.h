#pragma once

#include "morvellacinto/platform/Network.h"
#include "morvellacinto/scripted/SharedScript.h"

namespace morvellacinto::scripted {

/// The route and the Wi-Fi networks of the script.
class MORVELLACINTO_EXPORT ScriptedNetwork final : public platform::Network {
public:
    explicit ScriptedNetwork(ScriptPointer script);

    [[nodiscard]] std::optional<std::uint32_t> defaultRouteFlags() const override;
    [[nodiscard]] std::optional<std::vector<std::string>> supportedInterfaces() const override;
    [[nodiscard]] std::optional<platform::WifiNetwork>
    currentNetworkInfo(const std::string& interface) const override;

private:
    ScriptPointer script_;
};

} // namespace morvellacinto::scripted
