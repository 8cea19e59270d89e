#pragma once

#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::native {

/// The interface that a packet to the Internet would leave by, in the network namespace of the
/// calling thread, rules and metrics considered; nothing when there is no way. `family` is AF_INET
/// or AF_INET6. Sends no packet.
[[nodiscard]] std::optional<std::string> interfaceToInternet(int family);

/// The interfaces of the default routes in the text of the kernel's file "route" (AF_INET) or
/// "ipv6_route" (AF_INET6), the preferred one first.
[[nodiscard]] std::vector<std::string> defaultRoutesIn(const std::string& table, int family);

} // namespace morvellacinto::native
