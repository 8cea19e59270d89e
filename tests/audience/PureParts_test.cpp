// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/KRAudienceManager.h"
#include "morvellacinto/audience/RoundToN.h"

#include <gmock/gmock.h>

#include <cmath>

namespace morvellacinto {
namespace {

std::string queryOf(const Object& tags) {
    try {
        return KRAudienceManager::toQueryString(tags);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

TEST(QueryString, JoinsOnePairForEachElementAndNamesAMemberThatIsNoArrayOfStrings) {
    const std::string key(14, 'k');
    const std::string longKey(4000, 'k');
    const std::string wrong = "a query string needs arrays of strings; the member \"seg\" holds ";
    const std::pair<Object, std::string> cases[] = {
        {{}, ""},
        {{{"a", Array::of({"1"})}, {"none", Array()}, {"b", Array::of({""})}}, "a=1&b="},
        {{{"my key", Array::of({"x&y=z"})}}, "my key=x&y=z"},
        {{{key, Array::of({"1", "2"})}, {key + "k", Array::of({"3"})}},
         key + "=1&" + key + "=2&" + key + "k=3"},
        {{{longKey, Array::of({"1", "2"})}}, longKey + "=1&" + longKey + "=2"},
        {{{"ok", Array::of({"1"})}, {"seg", "text"}}, wrong + "a string"},
        {{{"seg", Array::of({"1", 2})}}, wrong + "an array with an integer"}};
    for (const auto& [tags, query] : cases) {
        EXPECT_EQ(queryOf(tags), query);
    }
}

TEST(QueryString, EncodesEachAsciiCharacterButTheAllowedOnesAndValuesOfEveryLength) {
    std::string all;
    for (int byte = 0; byte < 128; ++byte) {
        all += static_cast<char>(byte);
    }
    EXPECT_EQ(queryOf({{"k", Array::of({all})}}),
              "k=%00%01%02%03%04%05%06%07%08%09%0A%0B%0C%0D%0E%0F%10%11%12%13%14%15%16%17%18%19%1A"
              "%1B%1C%1D%1E%1F%20!%22%23$%25&'()*+,-.%2F0123456789:;%3C=%3E%3F%40"
              "ABCDEFGHIJKLMNOPQRSTUVWXYZ[%5C]%5E_%60abcdefghijklmnopqrstuvwxyz%7B%7C%7D~%7F");
    std::string value;
    std::string encoded;
    for (int size = 0; size < 10'000; size += 3) {
        const std::string query = "k=" + encoded + "&k=x&k=" + encoded;
        EXPECT_TRUE(queryOf({{"k", Array::of({value, "x", value})}}) == query) << size;
        value += size % 2 == 0 ? "\xE2\x82\xAC" : "a b";
        encoded += size % 2 == 0 ? "%E2%82%AC" : "a%20b";
    }
}

TEST(RoundToN, RoundsHalvesAwayFromZeroInSinglePrecision) {
    // From 10 decimals on the multiplier wraps: to 1410065408, 1215752192, -727379968 and so on.
    for (const auto& [value, decimals, rounded] :
         {std::tuple(59.3293371F, 5U, 59.32934F), std::tuple(2.675F, 2U, 2.68F),
          std::tuple(-2.5F, 0U, -3.0F), std::tuple(2.5F, 0U, 3.0F),
          std::tuple(1e30F, 9U, HUGE_VALF), std::tuple(1e-9F, 10U, 7.09186987e-10F),
          std::tuple(-1.4e-9F, 11U, -1.64507208e-9F), std::tuple(1e-9F, 12U, 1.37479728e-9F),
          std::tuple(4e-10F, 31U, 4.65661287e-10F)}) {
        EXPECT_EQ(roundToN(value, decimals), rounded) << value << " to " << decimals;
    }
    for (const std::uint32_t decimals : {32U, 4294967295U}) {
        EXPECT_TRUE(std::isnan(roundToN(59.3F, decimals))) << decimals;
    }
}

} // namespace
} // namespace morvellacinto
