#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

using testing::ElementsAre;

using Import = ScriptedPhoneTest;

const std::string failed = "dict init failed";

Thing& thingIn(const std::optional<Value>& value) {
    return dynamic_cast<Thing&>(value.value().asInstance());
}

TEST_F(Import, convertsStringsOnlyForNumberPropertiesOfTheJsonKeyItself) {
    const struct {
        const char* json;
        std::optional<Value> count;
    } cases[] = {
        {R"({"count": "12.5"})", 12.5}, {R"({"count": "1,234"})", 1234},
        {R"({"count": "abc"})", -1},    {R"({"count": 3})", 3},
        {R"({"count": true})", true},   {R"({"count": null})", -1},
        {R"({"count": []})", Array()},  {R"({"count": {"a": 1}})", Object{{"a", 1}}},
        {R"({"Count": 3})", -1},
    };
    for (const auto& each : cases) {
        auto thing = makeInstance<Thing>();
        thing->count = -1;
        thing->setAvValuesForKeysWithDictionary(object(each.json));
        EXPECT_EQ(thing->count, each.count) << each.json;
    }
    EXPECT_EQ(filled(R"({"other": "12.5"})")->other, Value("12.5"));
}

TEST_F(Import, setsTheKeyIdAsIdentWhereThatIsAnswered) {
    EXPECT_EQ(filled(R"({"id": 7})")->ident, Value(7));
    EXPECT_EQ(filled(R"({"id": "7"})")->ident, Value("7"));
    EXPECT_EQ(filled(R"({"ID": 7})")->ident, std::nullopt);
    auto journey = makeInstance<Journey>();
    journey->setAvValuesForKeysWithDictionary(object(R"({"id": 7, "unknown": {}})"));
}

TEST_F(Import, setsNestedJsonAsItIsWithoutANodeMapping) {
    const auto thing = filled(R"({"node": {"count": 1}, "nodes": [1, "a", null], "nowhere": 1})");
    EXPECT_EQ(thing->node, Value(Object{{"count", 1}}));
    EXPECT_EQ(thing->nodes, Value(Array::of({1, "a", nullptr})));
}

TEST_F(Import, convertsNodesAtEveryDepthWithTheSameMapping) {
    const NodeMapping nodes{{"node", "Thing"}, {"nodes", AVClass::of<Thing>()}};
    const auto thing = filled(
        R"({"node": {"count": "1", "nodes": [{"count": 2}, [{"node": {"count": 3}}]]}})", nodes);
    const Thing& inner = thingIn(thing->node);
    EXPECT_EQ(inner.count, Value(1));
    const Array& list = inner.nodes.value().asArray();
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(thingIn(list[0]).count, Value(2));
    EXPECT_EQ(thingIn(thingIn(list[1].asArray().at(0)).node).count, Value(3));
}

TEST_F(Import, leavesPropertiesUntouchedByEmptyArraysAndScalarsUnderNodeKeys) {
    for (const char* json : {R"({"nodes": []})", R"({"nodes": "text"})", R"({"nodes": 5})",
                             R"({"nodes": null})", R"({"nowhere": []})"}) {
        auto thing = makeInstance<Thing>();
        thing->nodes = "old";
        thing->setAvValuesForKeysWithDictionary(object(json),
                                                {{"nodes", "Thing"}, {"nowhere", "Thing"}});
        EXPECT_EQ(thing->nodes, Value("old")) << json;
    }
}

TEST_F(Import, stopsALevelAtTheKeyThatFailsAndKeepsWhatWasSet) {
    const NodeMapping nodes{{"nodes", AVClass::of<Thing>()},
                            {"nowhere", AVClass::of<Thing>()},
                            {"strangers", "NoSuchClass"}};
    for (const char* json : {
             R"({"ident": 1, "nodes": ["text"], "count": 2})",
             R"({"ident": 1, "nodes": [{}, null], "count": 2})",
             R"({"ident": 1, "nodes": [{}, [5]], "count": 2})",
             R"({"ident": 1, "nowhere": {}, "count": 2})",
             R"({"ident": 1, "nowhere": [{}], "count": 2})",
             R"({"ident": 1, "strangers": [{}], "count": 2})",
             R"({"ident": 1, "@unknown": 5, "count": 2})",
             R"({"ident": 1, "shout": "computed", "count": 2})",
         }) {
        const auto thing = filled(json, nodes);
        expectLog({failed});
        EXPECT_EQ(thing->ident, Value(1)) << json;
        EXPECT_EQ(thing->count, std::nullopt) << json;
        EXPECT_EQ(thing->nodes, std::nullopt) << json;
    }
}

TEST_F(Import, goesOnAroundANestedObjectThatFails) {
    const auto thing = filled(R"({"node": {"ident": 1, "@x": 0, "count": 2}, "count": 3})",
                              {{"node", AVClass::of<Thing>()}});
    expectLog({failed});
    EXPECT_EQ(thingIn(thing->node).ident, Value(1));
    EXPECT_EQ(thingIn(thing->node).count, std::nullopt);
    EXPECT_EQ(thing->count, Value(3));
}

TEST_F(Import, setsNothingForANodeOfAnUnknownClass) {
    auto thing = makeInstance<Thing>();
    thing->node = 5;
    thing->setAvValuesForKeysWithDictionary(object(R"({"node": {}, "count": 1})"),
                                            {{"node", "NoSuchClass"}});
    EXPECT_EQ(thing->node, std::nullopt);
    EXPECT_EQ(thing->count, Value(1));
}

TEST_F(Import, looksNodeKeysUpPlainlyAndPlainKeysThroughTheDictionary) {
    class Counted : public Thing {
        AVJSON_CLASS(Counted, Thing)
        static void describeMembers(AVDescription<Counted>& counted) {
            counted.property<&Counted::members>("@count");
        }

        AVValue<> members;
    };
    auto counted = makeInstance<Counted>();
    counted->setAvValuesForKeysWithDictionary(object(R"({"@count": "x", "a": 1, "b": 2})"));
    EXPECT_EQ(counted->members, Value(3));
    counted->setAvValuesForKeysWithDictionary(object(R"({"@count": {"count": 9}})"),
                                              {{"@count", AVClass::of<Thing>()}});
    EXPECT_EQ(thingIn(counted->members).count, Value(9));
}

TEST_F(Import, asksTheObjectBeingFilled) {
    auto harbour = makeInstance<Harbour>();
    harbour->setAvValuesForKeysWithDictionary(
        object(R"({"id": "12 metres", "anchorages": "7", "name": "Visby", "height": "1,000"})"));
    EXPECT_EQ(harbour->ident, 12);
    EXPECT_EQ(harbour->berths(), 7);
    EXPECT_EQ(harbour->name, "Visby");
    EXPECT_EQ(harbour->height, 1000.0);
    harbour->setAvValuesForKeysWithDictionary(object(R"({"anchorages": -1, "id": 1})"));
    expectLog({failed});
    EXPECT_EQ(harbour->berths(), 7);
    EXPECT_EQ(harbour->ident, 12);
}

TEST_F(Import, asksTheObjectAlsoWhereItsOwnTypeIsNotDescribed) {
    class Renamed : public Thing {
    public:
        std::string keyExceptionForSourceKey(std::string_view key) const override {
            return key == "amount" ? "count" : std::string(key);
        }
        std::string sourceKeyForExceptionKey(std::string_view) const override { return "amount"; }
    };
    auto renamed = makeInstance<Renamed>();
    renamed->setAvValuesForKeysWithDictionary(
        object(R"({"amount": 3, "id": 4, "aNameOfManyLetters": "5,000"})"));
    EXPECT_EQ(renamed->count, Value(3));
    EXPECT_EQ(renamed->ident, std::nullopt);
    EXPECT_EQ(renamed->aNameOfManyLetters, Value(5000));
    EXPECT_EQ(renamed->avDictionaryWithValuesForKeys({"count"}), (Object{{"amount", 3}}));
}

TEST_F(Import, takesJsonOfTheGreatestDepthWholeAndStopsBelowIt) {
    const auto nested = [](std::size_t levels, const char* open, const char* close) {
        std::string json;
        for (std::size_t level = 1; level < levels; ++level) {
            json += open;
        }
        json += R"({"count": 1})";
        for (std::size_t level = 1; level < levels; ++level) {
            json += close;
        }
        return json;
    };
    const NodeMapping nodes{{"node", AVClass::of<Thing>()}};
    const auto top = filled(nested(maximumJsonDepth, R"({"node": )", "}"), nodes);
    const Thing* deepest = top.get();
    std::size_t levels = 1;
    for (; deepest->node; ++levels) {
        deepest = &thingIn(deepest->node);
    }
    EXPECT_EQ(levels, maximumJsonDepth);
    EXPECT_EQ(deepest->count, Value(1));

    const Array arrays = array(nested(maximumJsonDepth, "[", "]"));
    EXPECT_EQ(AVJSON::asObjectOfClass(arrays, "Thing").size(), 1U);
    EXPECT_THROW(
        static_cast<void>(AVJSON::asObjectOfClass(Array::of({Array::of({arrays})}), "Thing")),
        std::length_error);
    auto deeper = makeInstance<Thing>();
    const Value whole = object(nested(maximumJsonDepth, R"({"node": )", "}"));
    deeper->setAvValuesForKeysWithDictionary(Object{{"node", whole}, {"count", 2}}, nodes);
    expectLog({failed});
    EXPECT_EQ(deeper->count, Value(2));
}

} // namespace
} // namespace morvellacinto
