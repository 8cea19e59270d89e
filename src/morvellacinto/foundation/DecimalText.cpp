// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/DecimalText.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace morvellacinto {
namespace {

// Whether a number that no double can hold is too large rather than too small, from the decimal
// exponent of its first digit that is not zero.
bool isTooLarge(std::string_view text) noexcept {
    std::int64_t exponent = 0;
    bool seenPoint = false;
    bool seenDigit = false;
    std::size_t index = text.front() == '-' ? 1 : 0;
    for (; index < text.size() && text[index] != 'e' && text[index] != 'E'; ++index) {
        if (text[index] == '.') {
            seenPoint = true;
            continue;
        }
        seenDigit = seenDigit || text[index] != '0';
        if (seenDigit && !seenPoint) {
            ++exponent;
        } else if (!seenDigit && seenPoint) {
            --exponent;
        }
    }
    if (index < text.size()) {
        std::string_view digits = text.substr(index + 1);
        const bool negative = digits.front() == '-';
        if (negative || digits.front() == '+') {
            digits.remove_prefix(1);
        }
        std::int64_t written = 0;
        for (const char digit : digits) {
            written = std::min<std::int64_t>(written * 10 + (digit - '0'), INT64_C(1) << 40);
        }
        exponent += negative ? -written : written;
    }
    return exponent > 0;
}

} // namespace

std::optional<double> doubleFromDecimal(std::string_view text) noexcept {
    double number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) {
        return isTooLarge(text) ? std::nullopt : std::optional(0.0);
    }
    return number;
}

} // namespace morvellacinto
