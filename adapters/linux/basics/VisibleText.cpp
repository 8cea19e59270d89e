#include "VisibleText.h"

#include "morvellacinto/foundation/Utf8.h"

#include <algorithm>
#include <utility>

namespace morvellacinto::native {

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
