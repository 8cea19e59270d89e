// SPDX-License-Identifier: MIT
#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

#include <cmath>
#include <map>
#include <set>

namespace morvellacinto {
namespace {

enum class Colour : std::uint8_t { red = 1, green = 5 };
AVJSON_NAMES(Colour, {Colour::red, "red"}, {Colour::green, "green"})

struct Point {
    AVJSON_CLASS(Point, void, x, (y, "@y"))

    int x = 1;
    int y = 2;
};

/// A struct whose described base does not begin where it begins itself, and which chooses its keys.
struct Pin : Date, Point {
    AVJSON_CLASS(Pin, Point, (label, "id"), twice)

    std::string label;
    int twice() const { return 2 * x; }
    Array keysForExport() const { return Array::of({"x", "id", "twice"}); }
};

/// What a value in an array becomes in a property of that type, or why the property stays.
template <class T, class Form = void>
std::string taken(std::string_view json) {
    const auto given = [](const T& held) {
        AVExporter exporter(AVExporter::Mode::natural);
        return Array::of({AVProperty::give<T, Form>(held, exporter).value_or(Value())});
    };
    T held{};
    AVImporter importer;
    if (!AVProperty::take<T, Form>(held, array(json)[0], importer)) {
        EXPECT_EQ(given(held), given(T{})) << json;
        const platform::ValueSkipped refused = importer.refused("", "");
        return refused.wanted + ", not " + refused.found;
    }
    T again{};
    EXPECT_TRUE((AVProperty::take<T, Form>(again, given(held)[0], importer))) << json;
    EXPECT_EQ(given(again), given(held)) << json;
    return writeJson(given(held));
}

std::string scalars(std::string_view json) {
    return taken<bool>(json) + taken<std::int8_t>(json) + taken<std::uint16_t>(json) +
           taken<int>(json) + taken<std::int64_t>(json) + taken<std::uint64_t>(json) +
           taken<float>(json) + taken<double>(json);
}

TEST(Types, readBackWhatTheyGiveAndSayWhatTheyWant) {
    using Counts = std::map<std::string, bool>;
    using Journeys = std::map<std::string, std::vector<Ref<Journey>>>;
    using Grid = std::vector<std::vector<bool>>;
    using Milliseconds = std::chrono::sys_time<std::chrono::milliseconds>;
    using Seconds32 = std::chrono::sys_time<std::chrono::duration<std::int32_t>>;
    const struct {
        std::string (*taken)(std::string_view);
        const char* json;
        const char* expected;
    } cases[] = {
        {scalars, "[300]", "[true][127][300][300][300][300][300][300]"},
        {scalars, "[0.0]", "[false][0][0][0][0][0][0][0]"},
        {scalars, "[-300]", "[true][-128][0][-300][-300][0][-300][-300]"},
        {scalars, "[-300.5]", "[true][-128][0][-300][-300][0][-300.5][-300.5]"},
        {scalars, "[3.99]", "[true][3][3][3][3][3][3.99][3.99]"},
        {scalars, "[true]", "[true][1][1][1][1][1][1][1]"},
        {scalars, R"(["1e3x"])", "[true][1][1][1][1][1][1000][1000]"},
        {scalars, R"([" -07"])", "[true][-7][0][-7][-7][0][-7][-7]"},
        {scalars, R"(["+7.9"])", "[true][7][7][7][7][7][7.9][7.9]"},
        {scalars, R"(["-.5"])", "[false][0][0][0][0][0][-0.5][-0.5]"},
        {scalars, R"(["True"])", "[true][0][0][0][0][0][0][0]"},
        {scalars, R"(["inf"])", "[false][0][0][0][0][0][0][0]"},
        {taken<std::int64_t>, "[18446744073709551615]", "[9223372036854775807]"},
        {taken<std::int64_t>, "[9223372036854775808.0]", "[9223372036854775807]"},
        {taken<std::int64_t>, R"(["-9223372036854775808"])", "[-9223372036854775808]"},
        {taken<std::uint64_t>, R"(["18446744073709551615"])", "[18446744073709551615]"},
        {taken<bool>, R"(["true"])", "[true]"},
        {taken<int>, R"(["99999999999999999999"])", "[2147483647]"},
        {taken<bool>, "[null]", "a boolean, not null"},
        {taken<int>, "[[]]", "an integer of 32 bits, not an array"},
        {taken<std::string>, "[5]", "a string, not an integer"},
        {taken<Date>, R"(["2023-11-14T23:13:20+01:00"])", "[1700000000]"},
        {taken<Date>, "[true]", "a number of seconds or RFC 3339 text, not a boolean"},
        {taken<Date, AVText>, "[-1.25]", R"(["1969-12-31T23:59:58.75Z"])"},
        {taken<Date, AVText>, "[-1e-20]", R"(["1970-01-01T00:00:00Z"])"},
        {taken<Date, AVText>, "[1e300]", "[1e+300]"},
        {taken<Date, AVText>, R"(["0000-02-29t00:00:00z"])", R"(["0000-02-29T00:00:00Z"])"},
        {taken<Date, AVText>, R"(["2016-12-31T23:59:60.5Z"])", R"(["2017-01-01T00:00:00.5Z"])"},
        {taken<std::vector<Date>, AVText>, "[[0]]", R"([["1970-01-01T00:00:00Z"]])"},
        {taken<std::chrono::sys_seconds>, R"(["2023-11-14T22:13:20.6Z"])", "[1700000001]"},
        {taken<Seconds32>, R"(["2038-01-19T03:14:08Z"])",
         "a number of units or RFC 3339 text, not a string"},
        {taken<Milliseconds, AVText>, "[1700000000123]", R"(["2023-11-14T22:13:20.123Z"])"},
        {taken<Uuid>, R"(["00112233-4455-6677-8899-aabbccddeeff"])",
         R"(["00112233-4455-6677-8899-AABBCCDDEEFF"])"},
        {taken<Uuid>, R"(["x"])", "the 36 characters of a UUID, not a string"},
        {taken<Colour>, R"(["green"])", R"(["green"])"},
        {taken<Colour>, "[5]", R"(["green"])"},
        {taken<Colour>, "[2]", "[2]"},
        {taken<Colour>, R"(["5"])", "a name of the enumeration, not a string"},
        {taken<Value::Kind>, "[300]", "a number of the enumeration, not an integer"},
        {taken<Value>, R"([[1,null,{"a":2.5}]])", R"([[1,null,{"a":2.5}]])"},
        {taken<std::optional<Value>>, "[[null]]", "[[null]]"},
        {taken<Object>, R"([{"a":null}])", R"([{"a":null}])"},
        {taken<Array>, "[5]", "an array, not an integer"},
        {taken<std::optional<int>>, "[null]", "[null]"},
        {taken<std::map<std::string, Point>>, R"([{"p":{"x":5}}])", R"([{"p":{"x":5,"@y":2}}])"},
        {taken<Counts>, R"([{"a":1,"b":[]}])", "a boolean, not an array in member \"b\""},
        {taken<std::array<int, 2>>, "[[3,4]]", "[[3,4]]"},
        {taken<std::array<int, 2>>, "[[3]]", "2 elements, not an array"},
        {taken<std::set<std::string>>, R"([["b","a","b"]])", R"([["a","b"]])"},
        {taken<Grid>, "[[[true,false],[]]]", "[[[true,false],[]]]"},
        {taken<Grid>, R"([[[1],["a",{}]]])", "a boolean, not an object in element 1 in element 1"},
        {taken<Point>, R"([{"@y":7,"z":5}])", R"([{"x":1,"@y":7}])"},
        {taken<std::vector<Point>>, "[[{},[],5]]", "an object, not an array in element 1"},
        {taken<Pin>, R"([{"twice":0,"x":5}])", R"([{"x":5,"id":"","twice":10}])"},
        {taken<Journeys>, R"([{"m":[{},null]}])", R"([{"m":[{"title":"?-?"},null]}])"},
        {taken<Ref<Place>>, R"(["x"])", "an instance of Place, not a string"}};
    for (const auto& each : cases) {
        EXPECT_EQ(each.taken(each.json), each.expected) << each.json;
    }
    EXPECT_EQ(AVType<int>::take(std::nan("")), 0);
    EXPECT_EQ(AVType<double>::take("-1e400"), -HUGE_VAL);
    for (const char* text :
         {"2023-02-29T00:00:00Z", "2023-11-14T24:00:00Z", "2023-11-14T22:60:00Z",
          "2023-11-14T22:13:20", "2023-11-14T22:13:20.Z", "2023-11-14T22:13:20Zx",
          "-023-11-14T22:13:20Z", "2023-11-14T22:13:20+24:00", "2023-11-14T22:13:20-00:60"}) {
        EXPECT_EQ(AVConversion::toDate(text), std::nullopt) << text;
    }
}

TEST(Types, tellOfNestedObjectsAndOfImportsThatEnd) {
    AVProblems problems;
    const auto places = AVJSON::as<std::vector<Ref<Harbour>>>(
        array(R"([{"name": 5, "id": 1}, {"anchorages": -1, "id": 2}, {"anchorages": -2}])"),
        &problems);
    EXPECT_EQ(places[0]->ident, 1);
    const std::string ended = "the import of a Harbour ended at \"anchorages\": ";
    EXPECT_EQ(sentenceOf(problems.at(0)),
              "property \"name\" of Harbour takes a string, not an integer; it stays as it was");
    EXPECT_EQ(sentenceOf(problems.at(1)), ended + "too few berths");
    EXPECT_EQ(sentenceOf(problems.at(2)), ended + "something that is no std::exception was thrown");
    EXPECT_EQ(problems.size(), 3U);
}

TEST(Types, areBoundedInDepth) {
    struct Box {
        AVJSON_CLASS(Box, void, boxes)

        std::vector<Box> boxes;
    };
    Box box;
    for (int level = 0; level < 255; ++level) {
        box = Box{{std::move(box)}};
    }
    const Value whole = AVJSON::from(box); // 511 levels, and its last empty array
    EXPECT_EQ(AVJSON::from(AVJSON::as<Box>(*readJson(*AVJSON::toJSON(whole)))), whole);
    AVProblems problems;
    static_cast<void>(AVJSON::as<std::vector<Box>>(Array::of({whole}), &problems));
    EXPECT_EQ(sentenceOf(problems.at(0)),
              "the import of a Box ended at \"boxes\": JSON is nested deeper than 512 levels");
    EXPECT_THROW(static_cast<void>(AVJSON::from(std::vector{box})), std::length_error);
}

TEST(Types, exportWhatAnObjectHoldsAndNoObjectInsideItself) {
    auto thing = makeInstance<Thing>();
    thing->exportKeys = Array::of({"other", "missing"});
    thing->other = Object{{"at", Date{5}}, {"of", Value(Ref<Instance>(makeInstance<Harbour>()))}};
    EXPECT_EQ(AVJSON::toJSON(AVJSON::from(*thing)),
              R"({"other":{"at":5,"of":{"id":0,"name":"HARBOUR ","journeys":[]}}})");
    thing->node = Value(Ref<Instance>(thing));
    thing->exportKeys = Array::of({"node"});
    EXPECT_THROW(static_cast<void>(AVJSON::from(thing)), std::invalid_argument);
    thing->node.reset();
}

class Mixed : public AVObject {
    AVJSON_CLASS(Mixed, AVObject, place, points, (when, "when", AVText), (renamed, "id"))

    Ref<Place> place;
    std::vector<Point> points;
    Date when;
    int renamed = 0;
};

using MixedTypes = ScriptedPhoneTest;

TEST_F(MixedTypes, areObjectsWithoutANodeMapping) {
    const auto mixed = AVJSON::asObjectOfClass<Mixed>(
        object(R"({"place": {"journeys": [{"to": {}}]}, "points": [{"x": 4}], "id": 5})"),
        {{"to", AVClass::of<Harbour>()}});
    EXPECT_EQ(mixed->place->journeys.at(0)->to->avClass().name(), "Harbour");
    EXPECT_EQ(mixed->renamed, 0); // "id" sets "ident"
    EXPECT_EQ(AVJSON::toJSON(mixed->avDictionaryWithValuesForKeys({"points", "when"})),
              R"({"points":[{"x":4,"@y":2}],"when":"1970-01-01T00:00:00Z"})");
    AVJSON::fill(*mixed, object(R"({"id": 5})"));
    EXPECT_EQ(mixed->renamed, 5);
}

} // namespace
} // namespace morvellacinto
