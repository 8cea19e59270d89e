#pragma once

#include <optional>
#include <string_view>

namespace morvellacinto::scripted {

/// The host of an absolute URL, brackets of an address included, or nothing for text that is no
/// absolute URL.
[[nodiscard]] std::optional<std::string_view> hostOf(std::string_view url) noexcept;

} // namespace morvellacinto::scripted
