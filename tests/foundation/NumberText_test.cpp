// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/NumberText.h"

#include "morvellacinto/foundation/Json.h"

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
    // Each with the number that JSON then has.
    std::istringstream numbers(
        "12=12|012=12| \t12\n=12|-7=-7|-1,234,567=-1234567|0,123=123|12.5=12.5|1,234.5=1234.5|"
        ".5=0.5|-.5=-0.5|5.=5|1e3=1000|1E+3=1000|2.5e-1=0.25|1,000e3=1000000|1e-400=0|"
        "18446744073709551615=18446744073709551615|-9223372036854775808=-9223372036854775808|"
        "18446744073709551616=18446744073709551616");
    std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation));
    for (std::string text, number; std::getline(std::getline(numbers, text, '='), number, '|');) {
        EXPECT_EQ(writeJsonFragment(numberFromText(text).value()), number) << text;
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
