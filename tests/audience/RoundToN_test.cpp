#include "morvellacinto/audience/RoundToN.h"

#include <gmock/gmock.h>

#include <cmath>

namespace morvellacinto {
namespace {

// The definition, step by step.
float byMultiplying(float value, std::uint32_t n) {
    std::uint32_t p = 1;
    for (; n != 0; --n) {
        p *= 10;
    }
    const auto multiplier = static_cast<float>(static_cast<std::int32_t>(p));
    return std::round(multiplier * value) / multiplier;
}

TEST(RoundToN, roundsHalvesAwayFromZeroInSinglePrecision) {
    EXPECT_EQ(roundToN(59.3293371F, 5), 59.32934F);
    EXPECT_EQ(roundToN(59.3293371F, 3), 59.329F);
    EXPECT_EQ(roundToN(2.675F, 2), 2.68F);
    EXPECT_EQ(roundToN(-2.5F, 0), -3.0F);
    EXPECT_EQ(roundToN(2.5F, 0), 3.0F);
}

TEST(RoundToN, computesWithTheWrappedMultiplier) {
    for (std::uint32_t n = 0; n < 40; ++n) {
        for (const float value : {0.0F, 1.5F, -18.0685808F, 59.3293371F, 1e30F}) {
            const float expected = byMultiplying(value, n);
            const float rounded = roundToN(value, n);
            EXPECT_TRUE(rounded == expected || (std::isnan(rounded) && std::isnan(expected)))
                << value << " to " << n;
        }
    }
}

TEST(RoundToN, isNotANumberAtOnceForHugeCounts) {
    EXPECT_TRUE(std::isnan(roundToN(59.3F, 32)));
    EXPECT_TRUE(std::isnan(roundToN(59.3F, 4294967295U)));
}

} // namespace
} // namespace morvellacinto
