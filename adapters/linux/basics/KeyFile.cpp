#include "KeyFile.h"

#include <fstream>

namespace morvellacinto::native {

namespace {
// Far above what any of the files read this way holds.
constexpr std::size_t maximumLines = 1000;
} // namespace

std::optional<std::string> readKey(const std::filesystem::path& path, std::string_view section,
                                   std::string_view key) {
    std::ifstream file(path);
    bool inSection = section.empty();
    std::string line;
    for (std::size_t count = 0; count < maximumLines && std::getline(file, line); ++count) {
        if (line.starts_with('[')) {
            inSection = line == "[" + std::string(section) + "]";
        } else if (inSection && line.starts_with(key) && line.size() > key.size() &&
                   line[key.size()] == '=') {
            return line.substr(key.size() + 1);
        }
    }
    return std::nullopt;
}

bool fileExists(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
}

} // namespace morvellacinto::native
