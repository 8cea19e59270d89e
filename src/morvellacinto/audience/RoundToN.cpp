// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/RoundToN.h"

#include <cmath>

namespace morvellacinto {

float roundToN(float value, std::uint32_t n) noexcept {
    // 10^32 is a multiple of 2^32.
    constexpr std::uint32_t vanishesFrom = 32;
    std::uint32_t multiplier = n < vanishesFrom ? 1 : 0;
    for (std::uint32_t count = n < vanishesFrom ? n : 0; count > 0; --count) {
        multiplier *= 10;
    }
    const auto p = static_cast<float>(static_cast<std::int32_t>(multiplier));
    const float product = p * value;
    return std::round(product) / p;
}

} // namespace morvellacinto
