#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

using Export = ScriptedPhoneTest;

const std::string failed = "dict init failed";

Ref<Thing> leaf(int count) {
    auto thing = makeInstance<Thing>();
    thing->count = count;
    thing->exportKeys = Array::of({"count"});
    return thing;
}

TEST_F(Export, storesEachKindAsItsRuleSays) {
    const Value withKeys = Ref<Instance>(leaf(5));
    const Value plain = Ref<Instance>(makeInstance<AVObject>());
    const struct {
        std::optional<Value> held;
        const char* json;
    } cases[] = {
        {0.5F, R"({"other":0.5})"},
        {Array::of({1, "a", nullptr, Array::of({1}), Object{{"a", 1}}}),
         R"({"other":[{},{},{},{},{}]})"},
        {Array::of({withKeys, withKeys, plain}), R"({"other":[{"count":5},{"count":5},{}]})"},
        {Array(), "{}"},
        {Object{{"deep", Array::of({1})}}, R"({"other":{"deep":[1]}})"},
        {withKeys, R"({"other":{"count":5}})"},
        {Value(), R"({"other":{}})"},
        {Date{1}, R"({"other":{}})"},
        {std::nullopt, "{}"},
    };
    auto thing = makeInstance<Thing>();
    for (const auto& each : cases) {
        thing->other = each.held;
        EXPECT_EQ(AVJSON::toJSON(thing->avDictionaryWithValuesForKeys({"other"})), each.json);
    }
    EXPECT_EQ(thing->avDictionaryWithValuesForKeys({}), Object());
}

TEST_F(Export, givesTheKeysAskedInTheirOrderUnderTheNamesOfTheClass) {
    auto harbour = makeInstance<Harbour>();
    harbour->name = "Visby";
    harbour->setBerths(7);
    EXPECT_EQ(AVJSON::toJSONWS(harbour->avDictionaryWithValuesForKeys(
                  {"depth", "berths", "name", "ident", "height", "journeys"})),
              R"({"depth":12.5,"berths":7,"name":"HARBOUR Visby","id":0})");
}

TEST_F(Export, logsKeysThatAreMissingAndGoesOn) {
    EXPECT_EQ(leaf(5)->avDictionaryWithValuesForKeys({"id", "count", "node.count", ""}),
              (Object{{"count", 5}}));
    EXPECT_TRUE(makeInstance<Harbour>()->avDictionaryWithValuesForKeys({"pier"}).empty());
    expectLog({"id missing in Thing while export", "node.count missing in Thing while export",
               " missing in Thing while export", "pier missing in the harbour of  while export"});
}

TEST_F(Export, followsAPathOnlyForAnObjectThatAnswersTheWholeOfIt) {
    class Route : public Journey {
        AVJSON_CLASS(Route, Journey)
        static void describeMembers(AVDescription<Route>& route) {
            for (const char* path :
                 {"to.name", "from.name", "from.none", "to.none", "extra.@count"}) {
                route.reader<&Route::title>(path);
            }
            route.property<&Route::extra>("extra");
        }

        std::optional<Value> extra() const { return Object{{"a", 1}, {"b", 2}}; }
    };
    auto route = makeInstance<Route>();
    route->to = makeInstance<Place>();
    route->to->name = "Visby";
    EXPECT_EQ(
        route->avDictionaryWithValuesForKeys({"from.name", "from.none", "to.name", "extra.@count"}),
        (Object{{"name", "Visby"}, {"@count", 2}}));
    EXPECT_EQ(route->avDictionaryWithValuesForKeys({"extra", "to.none", "from.name"}),
              (Object{{"extra", *route->extra()}}));
    expectLog({failed});
}

TEST_F(Export, keepsTheLastOfEqualOutputKeys) {
    class Twice : public Thing {
        AVJSON_CLASS(Twice, Thing)

        std::string sourceKeyForExceptionKey(std::string_view) const override { return "same"; }
    };
    auto twice = makeInstance<Twice>();
    twice->ident = 1;
    twice->count = 2;
    EXPECT_EQ(twice->avDictionaryWithValuesForKeys({"ident", "count", "ident", "count"}),
              (Object{{"same", 2}}));
    EXPECT_EQ(twice->avDictionaryWithValuesForKeys({"count", "node"}), Object());
}

TEST_F(Export, anExceptionTruncatesOnlyTheObjectInWhichItHappens) {
    auto inner = leaf(1);
    inner->exportKeys = Array::of({"count", "keysAsked", "ident"});
    inner->ident = 2;
    auto outer = leaf(3);
    outer->node = Value(Ref<Instance>(inner));
    EXPECT_EQ(AVJSON::toJSON(outer->avDictionaryWithValuesForKeys({"node", "count"})),
              R"({"node":{"count":1},"count":3})");
    expectLog({failed});
}

TEST_F(Export, endsCyclesWhereTheyClose) {
    auto place = makeInstance<Place>();
    place->name = "A";
    for (int count = 0; count < 2; ++count) {
        auto journey = makeInstance<Journey>();
        journey->from = place;
        place->journeys.push_back(journey);
    }
    EXPECT_EQ(AVJSON::toJSON(place->avDictionaryWithValuesForKeys({"journeys", "name"})),
              R"({"journeys":[{"title":"A-?","from":{}},{"title":"A-?","from":{}}],"name":"A"})");
    expectLog({failed, failed});
    place->journeys.clear();
}

TEST_F(Export, goesAsDeepAsJsonAndNoDeeper) {
    Ref<Thing> top = leaf(0);
    for (std::size_t level = 0; level < maximumJsonDepth; ++level) {
        auto outer = leaf(1);
        outer->exportKeys = Array::of({"node", "count"});
        outer->node = Value(Ref<Instance>(top));
        top = outer;
    }
    const Value whole = top->avDictionaryWithValuesForKeys({"node", "count"});
    expectLog({failed}); // of the leaf, which is there without its count
    EXPECT_THROW(static_cast<void>(AVJSON::toJSON(whole)), JsonWriteError);
    EXPECT_EQ(AVJSON::toJSON(whole.asObject().at("node"))->find(R"("count":0)"), std::string::npos);
}

} // namespace
} // namespace morvellacinto
