// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/Uuid.h"

namespace morvellacinto {
namespace {

constexpr bool isHyphenPosition(std::size_t position) {
    return position == 8 || position == 13 || position == 18 || position == 23;
}

// -1 for what is no hexadecimal digit.
constexpr int digitValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    return -1;
}

constexpr std::size_t textLength = 36;

} // namespace

std::optional<Uuid> Uuid::parse(TextArgument text) noexcept {
    if (text.size() != textLength) {
        return std::nullopt;
    }
    Uuid parsed;
    std::size_t digits = 0;
    for (std::size_t position = 0; position < textLength; ++position) {
        if (isHyphenPosition(position)) {
            if (text[position] != '-') {
                return std::nullopt;
            }
            continue;
        }
        const int value = digitValue(text[position]);
        if (value < 0) {
            return std::nullopt;
        }
        std::uint8_t& byte = parsed.bytes_[digits / 2];
        byte = static_cast<std::uint8_t>(byte << 4 | value);
        ++digits;
    }
    return parsed;
}

std::string Uuid::text() const {
    constexpr std::string_view hexadecimal = "0123456789ABCDEF";
    std::string text;
    text.reserve(textLength);
    for (const std::uint8_t byte : bytes_) {
        if (isHyphenPosition(text.size())) {
            text += '-';
        }
        text += hexadecimal[byte >> 4];
        text += hexadecimal[byte & 0xF];
    }
    return text;
}

} // namespace morvellacinto
