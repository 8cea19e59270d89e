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

Ref<Thing> holding(const std::optional<Value>& value) {
    auto thing = makeInstance<Thing>();
    thing->other = value;
    return thing;
}

/// Answers whole paths, some of which lead nowhere.
class Route : public Journey {
    AVJSON_CLASS(Route, Journey)
    static void describeMembers(AVDescription<Route>& route) {
        for (const char* path : {"to.name", "from.name", "from.none", "to.none", "extra.@count"}) {
            route.reader<&Route::title>(path);
        }
        route.property<&Route::extra>("extra");
    }

    std::optional<Value> extra() const { return Object{{"a", 1}, {"b", 2}}; }
};

class Twice : public Thing {
    AVJSON_CLASS(Twice, Thing)

    std::string sourceKeyForExceptionKey(std::string_view) const override { return "same"; }
};

TEST_F(Export, givesTheKeysAskedByTheirKindAndEndsWhereOneFails) {
    auto harbour = makeInstance<Harbour>();
    harbour->name = "Visby";
    harbour->setBerths(7);
    auto route = makeInstance<Route>();
    route->to = harbour;
    auto twice = makeInstance<Twice>();
    twice->ident = 1;
    twice->count = 2;
    auto inner = leaf(1);
    inner->exportKeys = Array::of({"count", "keysAsked", "ident"});
    inner->ident = 2;
    auto outer = leaf(3);
    outer->node = Value(Ref<Instance>(inner));
    auto round = makeInstance<Place>();
    for (int count = 0; count < 2; ++count) {
        round->journeys.push_back(makeInstance<Journey>());
        round->journeys.back()->from = round;
    }
    const Value withKeys = Ref<Instance>(leaf(5));
    const Value plain = Ref<Instance>(makeInstance<AVObject>());
    const Array mixed = Array::of({1, "a", nullptr, Array::of({1}), Object{{"a", 1}}});
    const struct {
        Ref<AVObject> object;
        std::vector<std::string> keys;
        const char* json;
        std::vector<std::string> log;
    } cases[] = {
        {holding(0.5F), {"other"}, R"({"other":0.5})", {}},
        {holding(mixed), {"other"}, R"({"other":[{},{},{},{},{}]})", {}},
        {holding(Array::of({withKeys, plain})), {"other"}, R"({"other":[{"count":5},{}]})", {}},
        {holding(Array()), {"other"}, "{}", {}},
        {holding(Object{{"deep", mixed}}),
         {"other"},
         R"({"other":{"deep":[1,"a",null,[1],{"a":1}]}})",
         {}},
        {holding(withKeys), {"other"}, R"({"other":{"count":5}})", {}},
        {holding(Value()), {"other"}, R"({"other":{}})", {}},
        {holding(Date{1}), {"other"}, R"({"other":{}})", {}},
        {holding(std::nullopt), {"other"}, "{}", {}},
        {harbour, {}, "{}", {}},
        {harbour,
         {"depth", "berths", "name", "pier", "ident", "height", "journeys"},
         R"({"depth":12.5,"berths":7,"name":"HARBOUR Visby","id":0})",
         {"pier missing in the harbour of Visby while export"}},
        {inner,
         {"id", "count", "node.count"},
         R"({"count":1})",
         {"id missing in Thing while export", "node.count missing in Thing while export"}},
        {route,
         {"from.name", "from.none", "to.name", "extra.@count"},
         R"({"name":"HARBOUR Visby","@count":2})",
         {}},
        {route, {"extra", "to.none", "from.name"}, R"({"extra":{"a":1,"b":2}})", {failed}},
        {twice, {"ident", "count", "ident", "count"}, R"({"same":2})", {}},
        {twice, {"count", "node"}, "{}", {}},
        {outer, {"node", "count"}, R"({"node":{"count":1},"count":3})", {failed}},
        {round, // inside itself
         {"journeys", "name"},
         R"({"journeys":[{"title":"-?","from":{}},{"title":"-?","from":{}}],"name":""})",
         {failed, failed}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(AVJSON::toJSONWS(each.object->avDictionaryWithValuesForKeys(each.keys)),
                  each.json);
        expectLog(each.log);
    }
    round->journeys.clear();
}

} // namespace
} // namespace morvellacinto
