#include "NativeNetwork.h"

namespace morvellacinto::native {

std::optional<std::uint32_t> NativeNetwork::defaultRouteFlags() const { return std::nullopt; }

std::optional<std::vector<std::string>> NativeNetwork::supportedInterfaces() const {
    return std::nullopt;
}

std::optional<platform::WifiNetwork> NativeNetwork::currentNetworkInfo(const std::string&) const {
    return std::nullopt;
}

} // namespace morvellacinto::native
