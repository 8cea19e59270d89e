#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace morvellacinto::native {

/// The digest that FIPS 180-4 calls SHA-256.
[[nodiscard]] std::array<std::uint8_t, 32> sha256(std::string_view message);

} // namespace morvellacinto::native
