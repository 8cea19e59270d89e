// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/NumberText.h"

#include "morvellacinto/foundation/DecimalText.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace morvellacinto {
namespace {

constexpr std::string_view whiteSpace = " \t\n\v\f\r";
constexpr std::size_t groupLength = 3;

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(whiteSpace);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

/// Takes the digits at the front of `text`.
std::string_view takeDigits(std::string_view& text) {
    const std::size_t length = std::min(text.find_first_not_of("0123456789"), text.size());
    const std::string_view digits = text.substr(0, length);
    text.remove_prefix(length);
    return digits;
}

/// Moves the whole part from the front of `text` to `digits`, without its separators; false when
/// a group is misplaced.
bool takeWholePart(std::string_view& text, std::string& digits) {
    const std::string_view first = takeDigits(text);
    digits += first;
    if (!text.starts_with(',')) {
        return true;
    }
    if (first.empty() || first.size() > groupLength) {
        return false;
    }
    while (text.starts_with(',')) {
        text.remove_prefix(1);
        const std::string_view group = takeDigits(text);
        if (group.size() != groupLength) {
            return false;
        }
        digits += group;
    }
    return true;
}

std::optional<Value> integerFromDigits(std::string_view digits) {
    const char* const end = digits.data() + digits.size();
    if (digits.front() == '-') {
        std::int64_t number = 0;
        const bool fits = std::from_chars(digits.data(), end, number).ec == std::errc();
        return fits && number != 0 ? std::optional<Value>(number) : std::nullopt;
    }
    std::uint64_t number = 0;
    const bool fits = std::from_chars(digits.data(), end, number).ec == std::errc();
    return fits ? std::optional<Value>(number) : std::nullopt;
}

} // namespace

std::optional<Value> numberFromText(std::string_view text) {
    text = trimmed(text);
    std::string plain; // the number without its separators
    if (text.starts_with('-')) {
        plain = '-';
        text.remove_prefix(1);
    }
    const std::size_t signLength = plain.size();
    if (!takeWholePart(text, plain)) {
        return std::nullopt;
    }
    std::size_t digitCount = plain.size() - signLength;
    bool isInteger = true;
    if (text.starts_with('.')) {
        isInteger = false;
        text.remove_prefix(1);
        const std::string_view fraction = takeDigits(text);
        digitCount += fraction.size();
        (plain += '.') += fraction;
    }
    if (digitCount == 0) {
        return std::nullopt;
    }
    if (text.starts_with('e') || text.starts_with('E')) {
        isInteger = false;
        plain += 'e';
        text.remove_prefix(1);
        if (text.starts_with('-') || text.starts_with('+')) {
            plain += text.front();
            text.remove_prefix(1);
        }
        const std::string_view exponent = takeDigits(text);
        if (exponent.empty()) {
            return std::nullopt;
        }
        plain += exponent;
    }
    if (!text.empty()) {
        return std::nullopt;
    }
    if (isInteger) {
        if (std::optional<Value> integer = integerFromDigits(plain)) {
            return integer;
        }
    }
    return doubleFromDecimal(plain);
}

} // namespace morvellacinto
