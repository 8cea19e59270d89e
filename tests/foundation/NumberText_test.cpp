// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/NumberText.h"

#include <gmock/gmock.h>

#include <cmath>
#include <locale>
#include <sstream>

namespace morvellacinto {
namespace {

// A locale such as German's, which no machine need have installed.
struct CommaPunctuation : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(NumberText, ReadsWhatPeopleWriteAndNothingElseWhateverTheLocale) {
    const std::pair<const char*, Value> numbers[] = {{"12", 12},
                                                     {" \t12\n", 12},
                                                     {"012", 12},
                                                     {"-7", -7},
                                                     {"-1,234,567", -1234567},
                                                     {"0,123", 123},
                                                     {"12.5", 12.5},
                                                     {"1,234.5", 1234.5},
                                                     {".5", 0.5},
                                                     {"-.5", -0.5},
                                                     {"5.", 5.0},
                                                     {"1e3", 1000.0},
                                                     {"1E+3", 1000.0},
                                                     {"2.5e-1", 0.25},
                                                     {"1,000e3", 1e6},
                                                     {"1e-400", 0.0},
                                                     {"18446744073709551615", UINT64_MAX},
                                                     {"-9223372036854775808", INT64_MIN},
                                                     {"18446744073709551616", 0x1p64}};
    std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation));
    for (const auto& [text, number] : numbers) {
        EXPECT_EQ(numberFromText(text), number) << text;
    }
    std::istringstream others(
        "12,5|1234,567|,123|1,234,|1,,234|1,2345|1.234,5|+5|--5|- 5|1e|1e+|e3|"
        "| |-|-.|1e400|-1e400|5%|0x10|12.5abc|inf|nan|1 234");
    for (std::string text; std::getline(others, text, '|');) {
        EXPECT_EQ(numberFromText(text), std::nullopt) << text;
    }
    EXPECT_EQ(numberFromText("1,234")->kind(), Value::Kind::integer);
    EXPECT_EQ(numberFromText("12.0")->kind(), Value::Kind::float64);
    EXPECT_TRUE(std::signbit(numberFromText("-0")->asDouble()));
}

} // namespace
} // namespace morvellacinto
