#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace morvellacinto::native {

/// What the files of the system tell about GeoClue without asking the bus.
class GeoClueFiles {
public:
    /// Reads the environment, and opens nothing. `root` is the folder that the system's files are
    /// looked up in.
    explicit GeoClueFiles(std::filesystem::path root = "/");

    /// Whether there is a system bus at all.
    [[nodiscard]] bool busExists() const;
    /// Whether the bus can start the service, or a sandbox lets the application talk to it. False
    /// may also mean that the files do not tell.
    [[nodiscard]] bool serviceExists() const;

private:
    [[nodiscard]] std::filesystem::path inRoot(const std::filesystem::path& absolute) const;

    const std::filesystem::path root_;
    std::string busAddress_;
    std::vector<std::filesystem::path> dataFolders_;
};

} // namespace morvellacinto::native
