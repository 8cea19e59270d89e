#include "morvellacinto/scripted/ScriptedNetwork.h"

namespace morvellacinto::scripted {

ScriptedNetwork::ScriptedNetwork(ScriptPointer script) : script_(std::move(script)) {}

std::optional<std::uint32_t> ScriptedNetwork::defaultRouteFlags() const {
    return script_->lock()->reachabilityFlags;
}

std::optional<std::vector<std::string>> ScriptedNetwork::supportedInterfaces() const {
    const auto script = script_->lock();
    if (!script->wifi.has_value()) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    for (const PhoneScript::WifiInterface& wifi : *script->wifi) {
        names.push_back(wifi.interface);
    }
    return names;
}

std::optional<platform::WifiNetwork>
ScriptedNetwork::currentNetworkInfo(const std::string& interface) const {
    const auto script = script_->lock();
    if (script->wifi.has_value()) {
        for (const auto& [name, network] : *script->wifi) {
            if (name == interface && (network.ssid.has_value() || network.bssid.has_value())) {
                return network;
            }
        }
    }
    return std::nullopt;
}

} // namespace morvellacinto::scripted
