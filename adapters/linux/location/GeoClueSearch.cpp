#include "NativeLocation.h"

#include "basics/SystemFiles.h"

#include <algorithm>
#include <sstream>

namespace morvellacinto::native {

std::function<bool()> geoClueSearch(const std::filesystem::path& root) {
    constexpr std::string_view pathAddress = "unix:path=";
    std::vector<std::filesystem::path> sockets = {root / "run/dbus/system_bus_socket",
                                                  root / "var/run/dbus/system_bus_socket"};
    if (const std::string address = environment("DBUS_SYSTEM_BUS_ADDRESS"); !address.empty()) {
        // What is no file cannot be told from here: taken to exist.
        sockets = {address.starts_with(pathAddress)
                       ? address.substr(pathAddress.size(),
                                        address.find_first_of(",;") - pathAddress.size())
                       : "/"};
    }
    std::vector<std::filesystem::path> services;
    std::istringstream folders("/usr/local/share:/usr/share:/lib:/etc:/run:" +
                               environment("XDG_DATA_DIRS"));
    for (std::string folder; std::getline(folders, folder, ':');) {
        services.push_back(root / std::filesystem::path(folder).relative_path() /
                           "dbus-1/system-services/org.freedesktop.GeoClue2.service");
    }
    return [sandbox = root / ".flatpak-info", sockets, services] {
        const auto policy = readKey(sandbox, "System Bus Policy", "org.freedesktop.GeoClue2");
        return std::any_of(sockets.begin(), sockets.end(), fileExists) &&
               (policy == "talk" || policy == "own" ||
                std::any_of(services.begin(), services.end(), fileExists));
    };
}

} // namespace morvellacinto::native
