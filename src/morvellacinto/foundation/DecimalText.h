// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string_view>

namespace morvellacinto {

/// The nearest double of digits with an optional leading "-", one ".", and exponent, the whole of
/// `text`. Nothing when it is too large for a double; one too small is 0.
[[nodiscard]] std::optional<double> doubleFromDecimal(std::string_view text) noexcept;

} // namespace morvellacinto
