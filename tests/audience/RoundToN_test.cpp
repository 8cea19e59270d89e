#include "morvellacinto/audience/RoundToN.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace morvellacinto {
namespace {

TEST(RoundToN, roundsHalvesAwayFromZeroInSinglePrecision) {
    const struct {
        float value;
        std::uint32_t decimals;
        float rounded;
    } cases[] = {
        {59.3293371F, 5, 59.32934F},
        {59.3293371F, 3, 59.329F},
        {-18.0685808F, 1, -18.1F},
        {2.675F, 2, 2.68F},
        {-2.5F, 0, -3.0F},
        {2.5F, 0, 3.0F},
        {0.0F, 7, 0.0F},
        {1e30F, 9, std::numeric_limits<float>::infinity()},
        // The multiplier wraps: 1410065408, 1215752192, -727379968, 1661992960, -2147483648.
        {1e-9F, 10, 7.09186987e-10F},
        {-1.4e-9F, 11, -1.64507208e-9F},
        {1e-9F, 12, 1.37479728e-9F},
        {2e-9F, 20, 1.80506177e-9F},
        {4e-10F, 31, 4.65661287e-10F},
    };
    for (const auto& [value, decimals, rounded] : cases) {
        EXPECT_EQ(roundToN(value, decimals), rounded) << value << " to " << decimals;
    }
}

TEST(RoundToN, isNotANumberAtOnceForHugeCounts) {
    for (const std::uint32_t decimals : {32U, 33U, 2147483648U, 4294967295U}) {
        EXPECT_TRUE(std::isnan(roundToN(59.3F, decimals))) << decimals;
    }
}

} // namespace
} // namespace morvellacinto
