#include "GeoClueFiles.h"

#include "basics/Environment.h"
#include "basics/KeyFile.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr const char* serviceFile = "dbus-1/system-services/org.freedesktop.GeoClue2.service";
constexpr std::string_view pathAddress = "unix:path=";

} // namespace

GeoClueFiles::GeoClueFiles(std::filesystem::path root)
    : root_(std::move(root)),
      busAddress_(environment("DBUS_SYSTEM_BUS_ADDRESS")), dataFolders_{"/usr/local/share",
                                                                        "/usr/share", "/lib",
                                                                        "/etc", "/run"} {
    std::istringstream folders(environment("XDG_DATA_DIRS"));
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (folder.starts_with('/')) {
            dataFolders_.emplace_back(folder);
        }
    }
}

bool GeoClueFiles::busExists() const {
    if (busAddress_.empty()) {
        return fileExists(inRoot("/run/dbus/system_bus_socket")) ||
               fileExists(inRoot("/var/run/dbus/system_bus_socket"));
    }
    if (!busAddress_.starts_with(pathAddress)) {
        return true; // not a file, so not to be told from here
    }
    const auto end = std::min(busAddress_.find_first_of(",;"), busAddress_.size());
    return fileExists(busAddress_.substr(pathAddress.size(), end - pathAddress.size()));
}

bool GeoClueFiles::serviceExists() const {
    const auto policy =
        readKey(inRoot("/.flatpak-info"), "System Bus Policy", "org.freedesktop.GeoClue2");
    return policy == "talk" || policy == "own" ||
           std::any_of(dataFolders_.begin(), dataFolders_.end(), [this](const auto& folder) {
               return fileExists(inRoot(folder / serviceFile));
           });
}

std::filesystem::path GeoClueFiles::inRoot(const std::filesystem::path& absolute) const {
    return root_ / absolute.relative_path();
}

} // namespace morvellacinto::native
