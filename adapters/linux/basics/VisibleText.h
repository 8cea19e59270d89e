#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// `bytes` as UTF-8 text: each byte that belongs to no well-formed sequence becomes U+FFFD.
[[nodiscard]] std::string visibleText(std::string_view bytes);

/// `text` when it is a word of printable ASCII; nothing when it is empty or anything else.
[[nodiscard]] std::optional<std::string> asciiWord(std::string text);

} // namespace morvellacinto::native
