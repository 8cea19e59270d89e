#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

#include <map>
#include <set>
#include <unordered_map>

namespace morvellacinto {
namespace {

enum class Colour : std::uint8_t { red = 1, green = 5 };
AVJSON_NAMES(Colour, {Colour::red, "red"}, {Colour::green, "green"})
enum class Level : std::int8_t {};

struct Sides {
    int width = 1;
};

} // namespace

/// A type that is the host's own.
template <>
struct AVType<Sides> {
    static std::string wanted() { return "a square such as 3x3"; }
    static std::optional<Sides> take(const Value& value) {
        const bool isOne = value.isString() && value.asString().ends_with("x3");
        return isOne ? std::optional(Sides{value.asString().front() - '0'}) : std::nullopt;
    }
    static Value give(const Sides& held) { return std::to_string(held.width) + "x3"; }
};

namespace {

struct Point {
    AVJSON_CLASS(Point, void, x, y)

    int x = 1;
    int y = 2;
    auto operator<=>(const Point&) const = default;
};

struct Marked {
    virtual ~Marked() = default;
};

/// A struct whose described base does not begin where it begins itself.
struct Pin : Marked, Point {
    AVJSON_CLASS(Pin, Point, (label, "id"), sum)

    std::string label;
    int sum() const { return x + y; }
};

struct Everything {
    AVJSON_CLASS(Everything, void, date, (dateText, "dateText", AVText), uuid, value, object, array,
                 map, hashed, fixed, set, colour, level, timeout, instant, millis,
                 (millisText, "millisText", AVText), maybe, view, sides, point, points, pointMap,
                 pin, shared, sharedMap, flags, grid, (real, "@real"), (dates, "dates", AVText),
                 inner)

    Date date{5};
    Date dateText;
    Uuid uuid;
    Value value;
    Object object;
    Array array;
    std::map<std::string, int> map;
    std::unordered_map<std::string, std::optional<double>> hashed;
    std::array<int, 2> fixed{};
    std::set<std::string> set;
    Colour colour = Colour::red;
    Level level{};
    std::chrono::milliseconds timeout{};
    std::chrono::sys_seconds instant{};
    std::chrono::sys_time<std::chrono::milliseconds> millis{};
    std::chrono::sys_time<std::chrono::milliseconds> millisText{};
    std::optional<std::optional<int>> maybe;
    std::string_view view() const { return "seen"; }
    Sides sides;
    Point point;
    std::vector<Point> points;
    std::map<std::string, Point> pointMap;
    Pin pin;
    Ref<Place> shared;
    std::map<std::string, std::vector<Ref<Place>>> sharedMap;
    std::vector<bool> flags;
    std::vector<std::vector<int>> grid;
    double real = 0;
    std::vector<Date> dates;
    std::optional<Value> inner;
};

std::string sentences(const AVProblems& problems) {
    std::string all;
    for (const auto& each : problems) {
        all += sentenceOf(each) + "|";
    }
    return all;
}

std::string roundTrip(std::string_view json) {
    AVProblems problems;
    const Value exported = AVJSON::from(AVJSON::as<Everything>(*readJson(json), &problems));
    const std::string text = AVJSON::toJSON(exported).value();
    EXPECT_EQ(AVJSON::from(AVJSON::as<Everything>(*readJson(text), &problems)), exported) << json;
    EXPECT_EQ(sentences(problems), "");
    return text;
}

TEST(MappedTypes, readBackWhatTheyExport) {
    const std::string_view whole =
        R"({"date":-1.25,"dateText":"2023-11-14T22:13:20.1Z","uuid":"00112233-4455-6677-8899-AABBC)"
        R"(CDDEEFF","value":[1,null,{"a":2.5}],"object":{"a":null},"array":[1,"a"],"map":{"a":1,"b":)"
        R"(2},"hashed":{"a":null},"fixed":[3,4],"set":["a","b"],"colour":"green","level":-7,"timeout")"
        R"(:1500,"instant":1700000000,"millis":1700000000100,"millisText":"2023-11-14T22:13:20.123Z")"
        R"(,"maybe":3,"view":"seen","sides":"3x3","point":{"x":1,"y":7},"points":[{"x":5,"y":6}],"po)"
        R"(intMap":{"p":{"x":5,"y":6}},"pin":{"x":5,"y":6,"id":"A","sum":11},"shared":{"ident":7,"nam)"
        R"(e":"A","journeys":[]},"sharedMap":{"m":[{"ident":7,"name":"A","journeys":[]},null]},"flag)"
        R"(s":[true,false],"grid":[[1,2],[]],"@real":100000,"dates":["2023-11-14T22:13:20Z"],"inner":)"
        R"([1,"a"]})";
    EXPECT_EQ(roundTrip(whole), whole);
    const char* const others[][2] = {
        {R"({"date":"2023-11-14T23:13:20+01:00"})", R"("date":1700000000,)"},
        {R"({"dateText":-1.25})", R"("dateText":"1969-12-31T23:59:58.75Z",)"},
        {R"({"dateText":"0000-02-29t00:00:00z"})", R"("dateText":"0000-02-29T00:00:00Z",)"},
        {R"({"dateText":"2016-12-31T23:59:60.5Z"})", R"("dateText":"2017-01-01T00:00:00.5Z",)"},
        {R"({"dateText":1e300})", R"("dateText":1e+300,)"},
        {R"({"instant":"2023-11-14T22:13:20.4Z"})", R"("instant":1700000000,)"},
        {R"({"set":["b","a","b"],"colour":5})", R"("set":["a","b"],"colour":"green",)"},
        {R"({"colour":2,"point":{"y":7}})", R"("colour":2,)"},
        {R"({"point":{"y":7},"view":5})", R"("point":{"x":1,"y":7},)"},
    };
    for (const auto& [json, part] : others) {
        EXPECT_THAT(roundTrip(json), testing::HasSubstr(part));
    }
}

TEST(MappedTypes, skipWhatTheyCannotHoldAndSayWhatTheyWant) {
    const struct {
        const char* json;
        const char* told; // between "takes" and "; it stays as it was"
    } cases[] = {
        {R"({"date": true})", "a number of seconds or RFC 3339 text, not a boolean"},
        {R"({"uuid": "x"})", "the 36 characters of a UUID, not a string"},
        {R"({"object": []})", "an object, not an array"},
        {R"({"array": 5})", "an array, not an integer"},
        {R"({"map": {"a": 1, "b": []}})", "an integer of 32 bits, not an array in member \"b\""},
        {R"({"fixed": [1]})", "2 elements, not an array"},
        {R"({"set": ["a", 5]})", "a string, not an integer in element 1"},
        {R"({"colour": "blue"})", "a name of the enumeration, not a string"},
        {R"({"level": 300})", "a number of the enumeration, not an integer"},
        {R"({"level": "7"})", "a number of the enumeration, not a string"},
        {R"({"timeout": {}})", "an integer of 64 bits, not an object"},
        {R"({"millis": "yesterday"})", "a number of units or RFC 3339 text, not a string"},
        {R"({"sides": "flat"})", "a square such as 3x3, not a string"},
        {R"({"point": 5})", "an object, not an integer"},
        {R"({"points": [{}, [], 5]})", "an object, not an array in element 1"},
        {R"({"shared": "x"})", "an instance of Place, not a string"},
        {R"({"sharedMap": {"m": [5]}})",
         "an instance of Place, not an integer in element 0 in member \"m\""},
        {R"({"grid": [[1], ["a", {}]]})",
         "an integer of 32 bits, not an object in element 1 in element 1"},
    };
    const Value untouched = AVJSON::from(Everything());
    for (const auto& each : cases) {
        Everything held;
        Object given = object(each.json);
        const std::string key(given.begin()->key());
        AVProblems problems;
        given.set("@real", 5);
        AVJSON::fill(held, given, &problems);
        EXPECT_EQ(sentences(problems), "property \"" + key + "\" of Everything takes " + each.told +
                                           "; it stays as it was|");
        EXPECT_EQ(held.real, 5) << key;
        held.real = 0;
        EXPECT_EQ(AVJSON::from(held), untouched) << key;
    }
    using Fine = std::chrono::sys_time<std::chrono::duration<double>>;
    EXPECT_EQ(AVType<Fine>::take("1970-01-01T00:00:00.25Z")->time_since_epoch().count(), 0.25);
    for (const char* text :
         {"2023-02-29T00:00:00Z", "2023-11-14", "2023-11-14T24:00:00Z", "2023-11-14T22:60:00Z",
          "2023-11-14T22:13:20", "2023-11-14T22:13:20.Z", "2023-11-14T22:13:20+1:00",
          "2023-11-14T22:13:20Zx", "-023-11-14T22:13:20Z", "2023-13-14T22:13:20Z",
          "2023-11-14T22:13:20+24:00", "2023-11-14T22:13:20-00:60", ""}) {
        EXPECT_EQ(AVConversion::toDate(text), std::nullopt) << text;
    }
}

TEST(MappedTypes, tellOfNestedObjectsAndOfImportsThatEnd) {
    AVProblems problems;
    const auto places = AVJSON::as<std::vector<Ref<Harbour>>>(
        array(R"([{"name": 5, "id": 1}, {"anchorages": -1, "id": 2},
                  {"anchorages": -2}])"),
        &problems);
    EXPECT_EQ(places[0]->ident, 1);
    EXPECT_EQ(places[1]->ident, 0);
    EXPECT_EQ(
        sentences(problems),
        "property \"name\" of Harbour takes a string, not an integer; it stays as it was|"
        "the import of a Harbour ended at \"anchorages\": a harbour cannot have less than no "
        "berths|"
        "the import of a Harbour ended at \"anchorages\": something that is no std::exception "
        "was thrown|");
    EXPECT_THROW(static_cast<void>(AVJSON::as<Point>(Array())), ValueKindError);
}

TEST(MappedTypes, areBoundedInDepth) {
    struct Box {
        AVJSON_CLASS(Box, void, boxes)

        std::vector<Box> boxes;
    };
    Box box;
    for (int level = 0; level < 255; ++level) {
        Box outer;
        outer.boxes.push_back(std::move(box));
        box = std::move(outer);
    }
    const Value whole = AVJSON::from(box); // 511 levels, and its last empty array
    EXPECT_EQ(AVJSON::from(AVJSON::as<Box>(*readJson(*AVJSON::toJSON(whole)))), whole);
    EXPECT_THROW(static_cast<void>(AVJSON::toJSON(Object{{"deeper", whole}})), JsonWriteError);
    AVProblems problems;
    static_cast<void>(AVJSON::as<std::vector<Box>>(Array::of({whole}), &problems));
    EXPECT_EQ(sentences(problems), "the import of a Box ended at \"boxes\": JSON is nested deeper "
                                   "than 512 levels|");
    Box outer;
    outer.boxes.push_back(std::move(box));
    EXPECT_THROW(static_cast<void>(AVJSON::from(outer)), std::length_error);
}

TEST(MappedTypes, exportWhatTheMacroListsUnlessTheClassSaysOtherwise) {
    struct Chosen : Point {
        AVJSON_CLASS(Chosen, Point)

        Array keysForExport() const { return Array::of({"y"}); }
    };
    EXPECT_EQ(AVJSON::from(Chosen()), Value(Object{{"y", 2}}));
    auto journey = makeInstance<Journey>();
    journey->to = makeInstance<Harbour>();
    EXPECT_EQ(AVJSON::toJSON(AVJSON::from(journey)),
              R"({"title":"?-","to":{"id":0,"name":"HARBOUR ","journeys":[]}})");
    auto thing = makeInstance<Thing>();
    thing->exportKeys = Array::of({"other", "nodes", "missing"});
    thing->other = Object{{"at", Date{5}}, {"of", Value(Ref<Instance>(journey->to))}};
    thing->nodes = Array::of({1, nullptr});
    EXPECT_EQ(
        AVJSON::toJSON(AVJSON::from(*thing)),
        R"({"other":{"at":5,"of":{"id":0,"name":"HARBOUR ","journeys":[]}},"nodes":[1,null]})");
    thing->node = Value(Ref<Instance>(thing));
    thing->exportKeys = Array::of({"node"});
    EXPECT_THROW(static_cast<void>(AVJSON::from(thing)), std::invalid_argument);
    thing->node.reset();
}

/// Where the prescribed operations meet types that they do not know.
class Mixed : public AVObject {
    AVJSON_CLASS(Mixed, AVObject, place, numbers, points, map, when, (renamed, "id"))

    Ref<Place> place;
    std::vector<int> numbers;
    std::vector<Point> points;
    std::map<std::string, Ref<Place>> map;
    Date when;
    int renamed = 0;
};

using MixedTypes = ScriptedPhoneTest;

TEST_F(MixedTypes, areObjectsWithoutANodeMappingAndPlainElementsEmptyOnes) {
    auto mixed = makeInstance<Mixed>();
    mixed->setAvValuesForKeysWithDictionary(
        object(R"({"place": {"id": 1, "journeys": [{"to": {"id": 2}}]}, "map": {"a": {"id": 3}},
                   "points": [{"x": 4}], "id": 5})"),
        {{"to", AVClass::of<Harbour>()}});
    EXPECT_EQ(mixed->place->journeys.at(0)->to->avClass().name(), "Harbour");
    EXPECT_EQ(mixed->place->journeys.at(0)->to->ident, 2);
    EXPECT_EQ(mixed->map.at("a")->ident, 3);
    EXPECT_EQ(mixed->points.at(0).x, 4);
    EXPECT_EQ(mixed->renamed, 0); // "id" sets "ident"
    AVJSON::fill(*mixed, object(R"({"id": 5})"));
    EXPECT_EQ(mixed->renamed, 5);
    class Asked : public Mixed {};
    auto asked = makeInstance<Asked>();
    AVJSON::fill<Mixed>(*asked, object(R"({"id": 5})"));
    EXPECT_EQ(asked->renamed, 5);
    mixed->numbers = {1, 2};
    EXPECT_EQ(
        AVJSON::toJSON(mixed->avDictionaryWithValuesForKeys({"numbers", "points", "map", "when"})),
        R"({"numbers":[{},{}],"points":[{"x":4,"y":2}],"map":{"a":{"ident":3,"name":""}},)"
        R"("when":0})");
}

} // namespace
} // namespace morvellacinto
