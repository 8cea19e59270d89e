// SPDX-License-Identifier: MIT
#include "SystemFiles.h"

#include "morvellacinto/foundation/Utf8.h"

#include <algorithm>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

std::optional<std::string> readSmallFile(const std::filesystem::path& path, std::size_t maximum) {
    std::string text(maximum, '\0'); // first: when memory runs out, nothing is left open
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return std::nullopt;
    }
    std::size_t size = 0;
    ssize_t count = 0;
    while (size < text.size() &&
           (count = read(descriptor, text.data() + size, text.size() - size)) > 0) {
        size += static_cast<std::size_t>(count);
    }
    close(descriptor);
    text.resize(size);
    return count >= 0 ? std::optional(std::move(text)) : std::nullopt;
}

std::optional<std::string> readKey(const std::filesystem::path& path, std::string_view section,
                                   std::string_view key) {
    std::istringstream lines(readSmallFile(path).value_or(""));
    bool inSection = section.empty();
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('[')) {
            inSection = line == std::string("[").append(section) + "]";
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

std::string visibleText(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const std::size_t length = utf8SequenceLength(bytes);
        text += length > 0 ? bytes.substr(0, length) : "\xEF\xBF\xBD";
        bytes.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return text;
}

std::optional<std::string> asciiWord(std::string text) {
    const bool isWord =
        std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
    return isWord && !text.empty() ? std::optional(std::move(text)) : std::nullopt;
}

} // namespace morvellacinto::native
