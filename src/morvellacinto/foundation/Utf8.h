// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace morvellacinto {

/// The length in bytes (1 to 4) of the well-formed UTF-8 sequence at the start of `text`, or 0 when
/// there is none: overlong forms, surrogates and code points over U+10FFFF are ill-formed.
[[nodiscard]] inline std::size_t utf8SequenceLength(std::string_view text) noexcept {
    const auto byte = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const auto continues = [&](std::size_t index) { return (byte(index) & 0xC0U) == 0x80U; };
    if (text.empty()) {
        return 0;
    }
    const unsigned lead = byte(0);
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return text.size() >= 2 && continues(1) ? 2 : 0;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        if (text.size() < 3 || !continues(1) || !continues(2)) {
            return 0;
        }
        const bool overlong = lead == 0xE0 && byte(1) < 0xA0;
        const bool surrogate = lead == 0xED && byte(1) >= 0xA0;
        return overlong || surrogate ? 0 : 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        if (text.size() < 4 || !continues(1) || !continues(2) || !continues(3)) {
            return 0;
        }
        const bool overlong = lead == 0xF0 && byte(1) < 0x90;
        const bool tooLarge = lead == 0xF4 && byte(1) >= 0x90;
        return overlong || tooLarge ? 0 : 4;
    }
    return 0;
}

} // namespace morvellacinto
