// SPDX-License-Identifier: MIT
#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

using Import = ScriptedPhoneTest;
using Export = ScriptedPhoneTest;

const std::string failed = "dict init failed";

const NodeMapping nodes{{"node", "Thing"},
                        {"nodes", AVClass::of<Thing>()},
                        {"nowhere", AVClass::of<Thing>()},
                        {"@count", AVClass::of<Thing>()},
                        {"strangers", "NoSuchClass"}};

/// What a Thing with a count of -1 holds behind an import.
std::string imported(const std::string& json, const NodeMapping& mapping) {
    auto thing = makeInstance<Thing>();
    thing->count = -1;
    thing->setAvValuesForKeysWithDictionary(object(json), mapping);
    return *AVJSON::toJSON(thing->avDictionaryWithValuesForKeys(
        {"count", "ident", "node", "nodes", "other", "aNameOfManyLetters"}));
}

TEST_F(Import, setsPlainKeysAsTheyAreAndNodesAsObjects) {
    const struct {
        const char* json;
        const char* held;
        NodeMapping mapping{};
    } cases[] = {
        {R"({"count": "12.5"})", R"({"count":12.5})"},
        {R"({"count": "abc", "Count": 3, "ID": 7, "unknown": {}})", R"({"count":-1})"},
        {R"({"count": null, "id": null})", R"({"count":-1})"},
        {R"({"count": []})", "{}"}, // exports leave it out
        {R"({"aNameOfManyLetters": "5"})", R"({"count":-1,"aNameOfManyLetters":5})"},
        {R"({"id": 7})", R"({"count":-1,"ident":7})"},
        {R"({"@count": "x", "a": 1, "b": 2})", R"({"count":-1,"node":3})"},
        {R"({"@count": {"count": 9}})", R"({"count":-1,"node":{"count":9}})", nodes},
        {R"({"node": {"count": "1"}})", R"({"count":-1,"node":{"count":"1"}})"},
        {R"({"node": {"count": "1", "nodes": [{"ident": 2}, [{"node": {"count": "3"}}]]}})",
         R"({"count":-1,"node":{"count":1,"nodes":[{"ident":2},{}]}})", nodes},
        {R"({"count": []})", R"({"count":-1})", {{"count", "Thing"}}},
        {R"({"count": "5", "node": null})", R"({"count":-1})", {{"count", "Thing"}}},
        {R"({"count": {}, "ident": 1})", R"({"ident":1})", {{"count", "NoSuchClass"}}},
        {R"({"nowhere": [], "ident": 1})", R"({"count":-1,"ident":1})", nodes}};
    for (const auto& each : cases) {
        EXPECT_EQ(imported(each.json, each.mapping), each.held) << each.json;
    }
}

TEST_F(Import, stopsALevelAtTheKeyThatFailsAndKeepsWhatWasSet) {
    for (const std::string failing :
         {R"("nodes": ["text"])", R"("nodes": [{}, null])", R"("nodes": [{}, [5]])",
          R"("nowhere": {})", R"("nowhere": [{}])", R"("strangers": [{}])", R"("@unknown": 5)",
          R"("shout": "computed")"}) {
        const std::string json = R"({"ident": 1, )" + failing + R"(, "count": 2})";
        EXPECT_EQ(imported(json, nodes), R"({"count":-1,"ident":1})") << failing;
        expectLog({failed});
    }
    EXPECT_EQ(imported(R"({"node": {"ident": 1, "@x": 0, "count": 2}, "count": 3})", nodes),
              R"({"count":3,"node":{"ident":1}})");
    expectLog({failed});
}

TEST_F(Import, asksTheObjectBeingFilled) {
    auto harbour = makeInstance<Harbour>();
    harbour->setAvValuesForKeysWithDictionary(object(
        R"({"id": "12 metres", "anchorages": "1,007", "name": "Visby", "height": "1,000"})"));
    harbour->setAvValuesForKeysWithDictionary(object(R"({"anchorages": -1, "id": 1})"));
    expectLog({failed});
    EXPECT_EQ(harbour->berths(), 1007);
    EXPECT_EQ(harbour->ident, 12);
    EXPECT_EQ(harbour->Place::name, "Visby");
    EXPECT_EQ(harbour->height, 1000.0);
}

TEST_F(Import, fillsAnExistingObjectOnceForEachElementAndThrowsForWhatIsNoObject) {
    const auto target = makeInstance<Thing>();
    const Value same = Ref<Instance>(target);
    EXPECT_EQ(AVJSON::asObjectOfClass(object(R"({"count": 1})"), target).get(), target.get());
    EXPECT_EQ(AVJSON::asObjectOfClass(array(R"([{"count": 2}, [{"ident": 3}], {}])"), target),
              Array::of({same, Array::of({same}), same}));
    EXPECT_EQ(target->count, Value(2));
    EXPECT_EQ(target->ident, Value(3));
    EXPECT_THROW(NodeClass(Ref<Thing>()), std::invalid_argument);
    EXPECT_FALSE(AVJSON::asObjectOfClass(object("{}"), "NoSuchClass"));
    for (const char* json : {R"(["text"])", "[{}, 5]", "[[null]]"}) {
        EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(array(json), "Thing")),
                     ValueKindError);
    }
    EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(array("[{}]"), "NoSuchClass")),
                 std::invalid_argument);
}

Ref<Thing> holding(const std::optional<Value>& value) {
    auto thing = makeInstance<Thing>();
    thing->other = value;
    thing->exportKeys = Array::of({"other"});
    return thing;
}

class Route : public Thing {
    AVJSON_CLASS(Route, Thing)
    static void describeMembers(AVDescription<Route>& route) {
        for (const char* path : {"node.other.a", "nodes.other", "node.none"}) {
            route.reader<&Route::shout>(path);
        }
    }
};

TEST_F(Export, givesTheKeysAskedByTheirKindAndEndsWhereOneFails) {
    auto harbour = makeInstance<Harbour>();
    harbour->name = "Visby";
    harbour->setBerths(7);
    auto route = makeInstance<Route>();
    route->node = Value(Ref<Instance>(holding(Object{{"a", 1}})));
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
    const Array mixed = Array::of({1, "a", nullptr, Array::of({1}), Object{{"a", 1}}});
    const struct {
        Ref<AVObject> object;
        std::vector<std::string> keys;
        const char* json;
        std::vector<std::string> log{};
    } cases[] = {{holding(0.5F), {"other", "other"}, R"({"other":0.5})"},
                 {holding(mixed), {"other"}, R"({"other":[{},{},{},{},{}]})"},
                 {holding(Array::of({withKeys})), {"other"}, R"({"other":[{"other":5}]})"},
                 {holding(Array()), {"other"}, "{}"},
                 {holding(Object{{"a", Array::of({1})}}), {"other"}, R"({"other":{"a":[1]}})"},
                 {holding(Date{1}), {"other"}, R"({"other":{}})"},
                 {holding(std::nullopt), {"other"}, "{}"},
                 {harbour,
                  {"depth", "berths", "name", "pier", "ident", "height", "journeys"},
                  R"({"depth":12.5,"berths":7,"name":"HARBOUR Visby","id":0})",
                  {"pier missing in the harbour of Visby while export"}},
                 {inner,
                  {"id", "other", "node.other"},
                  R"({"other":1})",
                  {"id missing in Thing while export", "node.other missing in Thing while export"}},
                 {route, {"nodes", "nodes.other"}, "{}"},
                 {route, {"node.other.a", "node.none", "node"}, R"({"a":1})", {failed}},
                 {outer, {"other", "count"}, R"({"other":{"other":1},"count":3})", {failed}},
                 {round, // inside itself
                  {"journeys", "name"},
                  R"({"journeys":[{"title":"-?","from":{}},{"title":"-?","from":{}}],"name":""})",
                  {failed, failed}}};
    for (const auto& each : cases) {
        EXPECT_EQ(AVJSON::toJSONWS(each.object->avDictionaryWithValuesForKeys(each.keys)),
                  each.json);
        expectLog(each.log);
    }
    round->journeys.clear();
    EXPECT_EQ(AVJSON::toJSONWS(Array::of({"\xFF"})), std::nullopt);
}

} // namespace
} // namespace morvellacinto
