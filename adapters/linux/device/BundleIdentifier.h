#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace morvellacinto::native {

/// The application's identifier: the host's own word, else Flatpak's.
class BundleIdentifier {
public:
    /// Reads the environment, and opens no file. `root` is the folder that the system's files are
    /// looked up in.
    explicit BundleIdentifier(std::optional<std::string> chosen, std::filesystem::path root = "/");

    /// Nothing outside of Flatpak when the host chose none, or an empty one.
    [[nodiscard]] std::optional<std::string> operator()() const;

private:
    std::optional<std::string> known_;
    std::filesystem::path root_;
};

} // namespace morvellacinto::native
