// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"
#include "morvellacinto/foundation/TextArgument.h"

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace morvellacinto {

/// A 128-bit identifier. Default-constructed it is all zero.
class MORVELLACINTO_EXPORT Uuid {
public:
    using Bytes = std::array<std::uint8_t, 16>; ///< in the order of the text

    constexpr Uuid() noexcept = default;
    constexpr explicit Uuid(const Bytes& bytes) noexcept : bytes_(bytes) {}

    /// Exactly 36 characters, hyphens after 8, 13, 18 and 23, hexadecimal digits of either case
    /// elsewhere; anything else gives nothing.
    [[nodiscard]] static std::optional<Uuid> parse(TextArgument text) noexcept;

    /// 36 characters, upper case.
    [[nodiscard]] std::string text() const;
    [[nodiscard]] constexpr const Bytes& bytes() const noexcept { return bytes_; } ///< in order

    friend constexpr auto operator<=>(const Uuid&, const Uuid&) noexcept = default;

private:
    Bytes bytes_{};
};

} // namespace morvellacinto
