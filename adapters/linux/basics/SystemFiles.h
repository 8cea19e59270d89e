// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// The variable's text, empty when it is not set. Safe on any thread, as long as the host does not
/// change its environment meanwhile.
inline std::string environment(const char* name) {
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : "";
}

/// What a small file holds, at most its first `maximum` bytes; nothing when it cannot be read.
/// Never waits for a writer, and leaves nothing open to programs that the host starts.
[[nodiscard]] std::optional<std::string>
readSmallFile(const std::filesystem::path& path, std::size_t maximum = std::size_t(64) << 10U);

/// The value of `key` in a file of lines KEY=VALUE, as it stands there; with a `section`, in that
/// part of the file that the line [section] heads. Nothing when there is no such line or file.
[[nodiscard]] std::optional<std::string> readKey(const std::filesystem::path& path,
                                                 std::string_view section, std::string_view key);

/// Whether there is a file or folder of that name that this process may see.
[[nodiscard]] bool fileExists(const std::filesystem::path& path);

/// `bytes` as UTF-8 text: each byte that belongs to no well-formed sequence becomes U+FFFD.
[[nodiscard]] std::string visibleText(std::string_view bytes);

/// `text` when it is a word of printable ASCII; nothing when it is empty or anything else.
[[nodiscard]] std::optional<std::string> asciiWord(std::string text);

} // namespace morvellacinto::native
