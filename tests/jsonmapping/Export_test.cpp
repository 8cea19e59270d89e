#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

using Export = ScriptedPhoneTest;

const std::string failed = "dict init failed";

Ref<Thing> holding(const std::optional<Value>& value) {
    auto thing = makeInstance<Thing>();
    thing->other = value;
    thing->exportKeys = Array::of({"other"});
    return thing;
}

/// Answers whole paths, some of which lead nowhere, and exports two things under one name.
class Route : public Journey {
    AVJSON_CLASS(Route, Journey)
    static void describeMembers(AVDescription<Route>& route) {
        for (const char* path : {"to.name", "from.name", "from.none", "to.none"}) {
            route.reader<&Route::title>(path);
        }
    }

    std::string sourceKeyForExceptionKey(std::string_view name) const override {
        return name == "title" ? "name" : std::string(name);
    }
};

TEST_F(Export, givesTheKeysAskedByTheirKindAndEndsWhereOneFails) {
    auto harbour = makeInstance<Harbour>();
    harbour->name = "Visby";
    harbour->setBerths(7);
    auto route = makeInstance<Route>();
    route->to = harbour;
    auto inner = holding(1);
    inner->exportKeys = Array::of({"other", "keysAsked", "ident"});
    inner->ident = 2;
    auto outer = holding(Value(Ref<Instance>(inner)));
    outer->count = 3;
    auto round = makeInstance<Place>();
    for (int count = 0; count < 2; ++count) {
        round->journeys.push_back(makeInstance<Journey>());
        round->journeys.back()->from = round;
    }
    const Value withKeys = Ref<Instance>(holding(5));
    const Value plain = Ref<Instance>(makeInstance<AVObject>());
    const Array mixed = Array::of({1, "a", nullptr, Array::of({1}), Object{{"a", 1}}});
    const struct {
        Ref<AVObject> object;
        std::vector<std::string> keys;
        const char* json;
        std::vector<std::string> log{};
    } cases[] = {
        {holding(0.5F), {"other"}, R"({"other":0.5})"},
        {holding(mixed), {"other"}, R"({"other":[{},{},{},{},{}]})"},
        {holding(Array::of({withKeys, plain})), {"other"}, R"({"other":[{"other":5},{}]})"},
        {holding(Array()), {"other"}, "{}"},
        {holding(Object{{"a", Array::of({1})}}), {"other"}, R"({"other":{"a":[1]}})"},
        {holding(withKeys), {"other"}, R"({"other":{"other":5}})"},
        {holding(Value()), {"other"}, R"({"other":{}})"},
        {holding(Date{1}), {"other"}, R"({"other":{}})"},
        {holding(std::nullopt), {"other"}, "{}"},
        {harbour, {}, "{}"},
        {harbour,
         {"depth", "berths", "name", "pier", "ident", "height", "journeys"},
         R"({"depth":12.5,"berths":7,"name":"HARBOUR Visby","id":0})",
         {"pier missing in the harbour of Visby while export"}},
        {inner,
         {"id", "other", "node.other"},
         R"({"other":1})",
         {"id missing in Thing while export", "node.other missing in Thing while export"}},
        {route, {"from", "from.name", "from.none"}, "{}"},
        {route, {"title", "to.name"}, R"({"name":"HARBOUR Visby"})"},
        {route, {"to.name", "title"}, R"({"name":"?-Visby"})"},
        {route, {"title", "from.name"}, "{}"},
        {route, {"to.name", "to.none", "to"}, R"({"name":"HARBOUR Visby"})", {failed}},
        {outer, {"other", "count"}, R"({"other":{"other":1},"count":3})", {failed}},
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
