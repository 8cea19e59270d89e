// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace morvellacinto {

/// Text that may be no URL, as an error may show it. Nobody knows where a user begins and ends in
/// it: all up to the last "@" goes, and query and fragment.
[[nodiscard]] inline std::string shownUrl(std::string_view text) {
    const std::string_view path = text.substr(0, text.find_first_of("?#"));
    const std::size_t afterUser = text.rfind('@') + 1; // 0 without one
    return std::string(path.substr(std::min(afterUser, path.size())));
}

} // namespace morvellacinto
