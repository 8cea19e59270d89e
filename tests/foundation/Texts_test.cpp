// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/foundation/NumberText.h"

#include <gmock/gmock.h>

#include <cmath>
#include <locale>
#include <sstream>

namespace morvellacinto {

TEST(JsonReader, RefusesWhatIsNoJson) {
    std::istringstream list(
        R"(| |1|"x"|null|[|{|[1|[1,|[1,]|[,1]|[1 2]|[]]|[] x|{"a"}|{"a":}|{"a":1,}|{a:1}|{1:1}|)"
        R"({"a":1 "b":2}|[01]|[-]|[+1]|[.5]|[5.]|[1e]|[1e+]|[0x10]|[NaN]|[1e309]|[-1e400]|[tru]|)"
        R"([nul]|["\x"]|["\u12"]|["\ud800"]|["\udc00"]|["\ud800\u0041"]|)"
        R"(["\ud800\ue000"]|["unended]|[1}|{"a":1]|)"
        "// x\n[]|[]\x01|[\"\x1F\"]|[\"\x80\"]|[\"\xC0\x80\"]|[\"\xC3\"]|[\"\xE0\x80\x80\"]|"
        "[\"\xE2\x82\"]|[\"\xED\xA0\x80\"]|[\"\xF0\x80\x80\x80\"]|[\"\xF4\x90\x80\x80\"]|"
        "[\"\xF0\x9F\x98\"]|[\"\xF5\x80\x80\x80\"]");
    for (std::string text; std::getline(list, text, '|');) {
        EXPECT_FALSE(readJson(text)) << text;
    }
    EXPECT_FALSE(readJson(std::string_view("[]\0", 3)));
    EXPECT_FALSE(readJson(std::string(1'000'000, '[')));
    EXPECT_FALSE(readJson(std::string(513, '[') + std::string(513, ']')));
    EXPECT_TRUE(readJson(std::string(512, '[') + std::string(512, ']')));
}

TEST(JsonReader, TellsLineColumnAndReason) {
    const std::pair<const char*, std::tuple<std::size_t, std::size_t, const char*>> cases[] = {
        {"", {1, 1, "the text ends too early"}},
        {" 5", {1, 2, "neither an object nor an array"}},
        {"[1,\n 2 3]", {2, 4, "neither a comma nor the end of an object or array"}},
        {"{\n\n\"a\" 1}", {3, 5, "no colon behind the name of a member"}},
        {"{a:1}", {1, 2, "no name of a member, which stands in quotation marks"}},
        {"[tru]", {1, 2, "no value"}},
        {"[]\n]", {2, 1, "something behind the end"}},
        {"[\"\x80\"]", {1, 3, "a control character or invalid UTF-8 in a string"}},
        {"[\"\\ud800\"]", {1, 9, "an escape that stands for no character in a string"}},
        {"[1e400]", {1, 7, "a number that is too large"}}};
    for (const auto& [text, expected] : cases) {
        JsonProblem problem;
        EXPECT_FALSE(readJson(text, &problem));
        EXPECT_EQ(std::tuple(problem.line, problem.column, problem.reason), expected) << text;
    }
}

TEST(JsonReader, ReadsWhatTheGrammarAllowsAndKeepsIntegersExactAndTakesDoublesBeyond) {
    const std::pair<std::string, std::string> cases[] = {
        {"\xEF\xBB\xBF [ ] ", "[]"},
        {"[\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0000\\u00e9\\u07ff\\u20ac\\uD83D\\uDE00 \xC3\xA9\"]",
         "[\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0000\xC3\xA9\xDF\xBF\xE2\x82\xAC\xF0\x9F\x98\x80 "
         "\xC3\xA9\"]"},
        {" {\"a\" : [true,false , null,{}] }", R"({"a":[true,false,null,{}]})"},
        {R"({"a":1,"b":2,"a":3})", R"({"a":3,"b":2})"},
        {"[9223372036854775807,-9223372036854775808,18446744073709551615,18446744073709551617,-0]",
         "[9223372036854775807,-9223372036854775808,18446744073709551615,18446744073709551616,"
         "-0]"},
        {"[1e-400,4.9e-324,0.00000000000000000000000000001e-390,1.7976931348623157e308]",
         "[0,5e-324,0,1.7976931348623157e+308]"}};
    for (const auto& [text, written] : cases) {
        EXPECT_EQ(writeJson(readJson(text).value()), written);
    }
}

TEST(JsonReader, ReadsAMillionMembersInLinearTime) {
    std::string text = "{";
    for (int key = 0; key < 1'000'000; ++key) {
        text += "\"" + std::to_string(key) + "\":0,";
    }
    text += "\"0\":1}";
    const auto read = readJson(text);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->asObject().size(), 1'000'000U);
    EXPECT_EQ(read->asObject().at("0"), Value(1));
}

TEST(JsonWriter, WritesCompactTextWithShortestNumbersAndPlainDigitsBelowTenToThe17th) {
    const Value value(Object{{"lat", 59.329F},
                             {"speed", 0.1},
                             {"whole", 3.0},
                             {"text", "a/\"\\\n\x1F\xC3\xA9"},
                             {"empty", Array::of({Object(), Array()})},
                             {"big", UINT64_MAX}});
    EXPECT_EQ(writeJson(value), R"({"lat":59.329,"speed":0.1,"whole":3,"text":"a/\"\\\n\u001f)"
                                "\xC3\xA9\",\"empty\":[{},[]],\"big\":18446744073709551615}");
    EXPECT_EQ(
        writeJson(Array::of({100000.0, 1700000000.0, -2e16, 1e17, 1e5F, 1234567.5, 99999.0, 1e-5})),
        "[100000,1700000000,-20000000000000000,1e+17,100000,1234567.5,99999,1e-05]");
}

// It goes through a string in steps of eight and of four.
TEST(JsonWriter, EscapesEveryPlaceOfStringsOfEveryLength) {
    const std::pair<std::string, std::string> cases[] = {
        {"\"", "\\\""}, {"\\", "\\\\"}, {"\x1F", "\\u001f"}, {"\xC3\xA9", "\xC3\xA9"}};
    for (std::size_t length = 0; length < 20; ++length) {
        for (std::size_t place = 0; place <= length; ++place) {
            const std::string before(place, 'b');
            const std::string after(length - place, 'a');
            for (const auto& [character, escaped] : cases) {
                EXPECT_EQ(writeJsonFragment(before + character + after),
                          '"' + before + escaped + after + '"');
            }
        }
    }
    EXPECT_EQ(writeJsonFragment(std::string(100'000, '\n')).size(), 200'002U);
}

TEST(JsonWriter, ThrowsOnWhatJsonCannotHoldAndNamesTheMember) {
    Value deep;
    for (int level = 0; level < 513; ++level) {
        deep = Array::of({deep});
    }
    const std::pair<Value, std::string> cases[] = {
        {Object{{"x", 1}, {"lat", std::nanf("")}},
         "JSON cannot hold not-a-number, found at or below the member \"lat\""},
        {Object{{"fixes", Array::of({Object{{"lat", 1}}, Date{1}})}},
         "JSON cannot hold a date, found at or below the member \"fixes\""},
        {Array::of({HUGE_VAL}), "JSON cannot hold infinity"},
        {Array::of({"\xFF is none"}), "JSON cannot hold a string that is not valid UTF-8"},
        {deep, "JSON cannot hold more than 512 levels"},
        {"text", "JSON text needs an object or an array at the top, found a string"}};
    for (const auto& each : cases) {
        EXPECT_THAT([&] { static_cast<void>(writeJson(each.first)); },
                    ::testing::ThrowsMessage<JsonWriteError>(each.second));
    }
}

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

} // namespace morvellacinto
