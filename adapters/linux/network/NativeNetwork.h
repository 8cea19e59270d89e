// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Network.h"

#include <filesystem>
#include <utility>

namespace morvellacinto::native {

class Bus;

/// The interface that a packet to the Internet would leave by, in the network namespace of the
/// calling thread, rules and metrics considered; nothing when there is no way. `family` is AF_INET
/// or AF_INET6. Sends no packet.
[[nodiscard]] std::optional<std::string> interfaceToInternet(int family);

/// The interfaces of the default routes in the text of the kernel's file "route" (AF_INET) or
/// "ipv6_route" (AF_INET6), the preferred one first.
[[nodiscard]] std::vector<std::string> defaultRoutesIn(const std::string& table, int family);

/// Reachability from the kernel's routes, Wi-Fi from NetworkManager.
class NativeNetwork final : public platform::Network {
public:
    /// `bus` must outlive this; `root` is the folder that the kernel's files are looked up in.
    explicit NativeNetwork(Bus& bus, std::filesystem::path root = "/")
        : bus_(bus), root_(std::move(root)) {}

    /// Of the way to the Internet by IPv4, or by IPv6 where there is none. `reachable` and, on a
    /// mobile network, `isWwan`; `connectionRequired` too while the interface waits to be let in.
    /// A tunnel counts as what the best other default route goes by. Routes of Linux neither dial
    /// nor wait for the user, so the other bits stay clear.
    [[nodiscard]] std::optional<std::uint32_t> defaultRouteFlags() const override;
    /// The Wi-Fi devices; each look is a question to the bus.
    [[nodiscard]] std::optional<std::vector<std::string>> supportedInterfaces() const override;
    [[nodiscard]] std::optional<platform::WifiNetwork>
    currentNetworkInfo(const std::string& interface) const override;

private:
    [[nodiscard]] std::uint32_t flagsOf(int family) const;
    [[nodiscard]] bool leadsOverCellular(const std::string& interface) const;
    [[nodiscard]] std::filesystem::path folderOf(const std::string& interface) const {
        return root_ / "sys/class/net" / interface;
    }

    Bus& bus_;
    const std::filesystem::path root_;
};

} // namespace morvellacinto::native
