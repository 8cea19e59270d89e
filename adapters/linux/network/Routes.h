#pragma once

#include <optional>
#include <string>
#include <vector>

namespace morvellacinto::native {

/// The kernel's routes, in the network namespace of the calling thread. Nothing here sends a
/// packet.
class Routes {
public:
    /// Throws std::system_error when the kernel cannot be asked.
    Routes();
    Routes(const Routes&) = delete;
    Routes& operator=(const Routes&) = delete;
    ~Routes();

    /// The name of the interface that a packet to the Internet would leave by, rules and metrics
    /// considered; nothing when there is no way. `family` is AF_INET or AF_INET6.
    [[nodiscard]] std::optional<std::string> interfaceToInternet(int family);

    /// The interfaces of all default routes of the main table, the preferred one first.
    [[nodiscard]] std::vector<std::string> interfacesOfDefaultRoutes(int family);

private:
    int descriptor_;
};

} // namespace morvellacinto::native
