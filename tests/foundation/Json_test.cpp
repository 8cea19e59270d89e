#include "morvellacinto/foundation/Json.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <sstream>

namespace morvellacinto {
namespace {

TEST(JsonReader, RefusesWhatIsNoJson) {
    std::istringstream list(
        R"(| |1|"x"|null|[|{|[1|[1,|[1,]|[,1]|[1 2]|[]]|[] x|{"a"}|{"a":}|{"a":1,}|{a:1}|{1:1}|)"
        R"({"a":1 "b":2}|[01]|[-]|[+1]|[.5]|[5.]|[1e]|[1e+]|[0x10]|[NaN]|[1e309]|[-1e400]|[tru]|)"
        R"([nul]|["\x"]|["\u12"]|["\ud800"]|["\udc00"]|["\ud800\u0041"]|["unended]|[1}|{"a":1]|)"
        "// x\n[]|[]\x01|[\"\x01\"]|[\"\x80\"]|[\"\xC0\x80\"]|[\"\xC3\"]|[\"\xE0\x80\x80\"]|"
        "[\"\xE2\x82\"]|[\"\xED\xA0\x80\"]|[\"\xF0\x80\x80\x80\"]|[\"\xF4\x90\x80\x80\"]|"
        "[\"\xF0\x9F\x98\"]|[\"\xF5\x80\x80\x80\"]");
    for (std::string text; std::getline(list, text, '|');) {
        EXPECT_FALSE(readJson(text)) << text;
    }
    EXPECT_FALSE(readJson(std::string_view("[]\0", 3)));
    EXPECT_FALSE(readJson(std::string(1'000'000, '[')));
    EXPECT_FALSE(readJson(std::string(513, '[') + std::string(513, ']')));
}

TEST(JsonReader, TellsLineColumnAndReason) {
    const struct {
        const char* text;
        std::size_t line;
        std::size_t column;
        const char* reason;
    } cases[] = {
        {"", 1, 1, "the text ends too early"},
        {" 5", 1, 2, "neither an object nor an array"},
        {"[1,\n 2 3]", 2, 4, "neither a comma nor the end of an object or array"},
        {"{\n\n\"a\" 1}", 3, 5, "no colon behind the name of a member"},
        {"{a:1}", 1, 2, "no name of a member, which stands in quotation marks"},
        {"[tru]", 1, 2, "no value"},
        {"[]\n]", 2, 1, "something behind the end"},
        {"[\"\x80\"]", 1, 3, "a control character or invalid UTF-8 in a string"},
        {"[\"\\ud800\"]", 1, 9, "an escape that stands for no character in a string"},
        {"[1e400]", 1, 7, "a number that is too large"},
        {"[1", 1, 3, "the text ends too early"},
    };
    for (const auto& each : cases) {
        JsonProblem problem;
        EXPECT_FALSE(readJson(each.text, &problem));
        EXPECT_EQ(problem.line, each.line) << each.text;
        EXPECT_EQ(problem.column, each.column) << each.text;
        EXPECT_EQ(problem.reason, each.reason) << each.text;
    }
}

TEST(JsonReader, ReadsWhatTheGrammarAllows) {
    EXPECT_EQ(readJson("\xEF\xBB\xBF [ ] "), Value(Array()));
    EXPECT_TRUE(readJson(std::string(512, '[') + std::string(512, ']')));
    EXPECT_EQ(readJson("[\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00e9\\uD83D\\uDE00 \xC3\xA9\"]"),
              Value(Array::of({"\"\\/\b\f\n\r\t\xC3\xA9\xF0\x9F\x98\x80 \xC3\xA9"})));
    EXPECT_EQ(readJson("[\"\\u0000\"]"), Value(Array::of({std::string_view("\0", 1)})));
    EXPECT_EQ(readJson(" {\"a\" : [true,false , null,{}] }"),
              Value(Object{{"a", Array::of({true, false, nullptr, Object()})}}));
}

TEST(JsonReader, LastOfEqualKeysWinsInThePlaceOfTheFirst) {
    EXPECT_EQ(writeJson(*readJson(R"({"a":1,"b":2,"a":3})")), R"({"a":3,"b":2})");
}

TEST(JsonReader, KeepsIntegersExactAndTakesDoublesBeyond) {
    const Value numbers = *readJson("[9223372036854775807,-9223372036854775808,"
                                    "18446744073709551615,18446744073709551616,-0,1e-400,4.9e-324,"
                                    "0.00000000000000000000000000001e-390,1.7976931348623157e308]");
    const Array& array = numbers.asArray();
    EXPECT_EQ(array[0].asInt64(), INT64_MAX);
    EXPECT_EQ(array[1].asInt64(), INT64_MIN);
    EXPECT_EQ(array[2].asUInt64(), UINT64_MAX);
    EXPECT_EQ(array[3].kind(), Value::Kind::float64);
    EXPECT_EQ(array[3].asDouble(), 0x1p64);
    EXPECT_TRUE(std::signbit(array[4].asDouble()));
    EXPECT_EQ(array[5].asDouble(), 0);
    EXPECT_EQ(array[6].asDouble(), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(array[7].asDouble(), 0);
    EXPECT_EQ(array[8].asDouble(), std::numeric_limits<double>::max());
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

TEST(JsonWriter, GivesNumbersBelowTenToThe17thInPlainDigits) {
    EXPECT_EQ(writeJson(Array::of({100000.0, 1700000000.0, -123456789012345680.0 / 10, 1e17, 1e5F,
                                   1234567.5, 99999.0, 1e-5})),
              "[100000,1700000000,-12345678901234568,1e+17,100000,1234567.5,99999,1e-05]");
}

TEST(JsonWriter, WritesCompactTextWithShortestNumbers) {
    const Value value(Object{{"lat", 59.329F},
                             {"speed", 0.1},
                             {"whole", 3.0},
                             {"text", "a/\"\\\n\x01\xC3\xA9"},
                             {"empty", Array::of({Object(), Array()})},
                             {"big", UINT64_MAX}});
    EXPECT_EQ(writeJson(value), R"({"lat":59.329,"speed":0.1,"whole":3,"text":"a/\"\\\n\u0001)"
                                "\xC3\xA9\",\"empty\":[{},[]],\"big\":18446744073709551615}");
}

TEST(JsonWriter, ThrowsOnWhatJsonCannotHoldAndNamesTheMember) {
    const auto messageFor = [](const Value& value) -> std::string {
        try {
            return writeJson(value);
        } catch (const JsonWriteError& error) {
            return error.what();
        }
    };
    EXPECT_EQ(messageFor(Object{{"lat", std::nanf("")}}),
              "JSON cannot hold not-a-number, found at or below the member \"lat\"");
    EXPECT_EQ(messageFor(Object{{"fixes", Array::of({Object{{"lat", 1}}, Date{1}})}}),
              "JSON cannot hold a date, found at or below the member \"fixes\"");
    EXPECT_EQ(messageFor(Array::of({HUGE_VAL})), "JSON cannot hold infinity");
    EXPECT_EQ(messageFor(Array::of({Date{1}})), "JSON cannot hold a date");
    EXPECT_EQ(messageFor(Array::of({"\xFF"})), "JSON cannot hold a string that is not valid UTF-8");
    EXPECT_EQ(messageFor("text"),
              "JSON text needs an object or an array at the top, found a string");
}

} // namespace
} // namespace morvellacinto
