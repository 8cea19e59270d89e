#include "KeyFile.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace morvellacinto::native {

namespace {
// Far above what any of the files read this way holds.
constexpr std::size_t maximumBytes = std::size_t{64} * 1024;
} // namespace

std::optional<std::string> readSmallFile(const std::filesystem::path& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status {};
    const bool isUsable = file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    std::string text;
    std::array<char, 4096> part{};
    ssize_t count = isUsable ? 1 : 0;
    while (count != 0 && text.size() < maximumBytes) {
        count = read(file, part.data(), part.size());
        if (count < 0 && errno != EINTR) {
            break;
        }
        text.append(part.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    close(file);
    return isUsable && count >= 0 ? std::optional(text) : std::nullopt;
}

std::optional<std::string> readKey(const std::filesystem::path& path, std::string_view section,
                                   std::string_view key) {
    std::istringstream file(readSmallFile(path).value_or(std::string()));
    bool inSection = section.empty();
    for (std::string line; std::getline(file, line);) {
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
