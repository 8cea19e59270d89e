#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

using Import = ScriptedPhoneTest;

const std::string failed = "dict init failed";

Thing& thingIn(const std::optional<Value>& value) {
    return dynamic_cast<Thing&>(value.value().asInstance());
}

const NodeMapping nodes{{"node", "Thing"},
                        {"nodes", AVClass::of<Thing>()},
                        {"nowhere", AVClass::of<Thing>()},
                        {"strangers", "NoSuchClass"}};

/// The properties that an import changes, as JSON; null for one that holds nothing any more.
std::string changes(const char* json, const NodeMapping& mapping) {
    auto thing = makeInstance<Thing>();
    thing->count = -1;
    thing->node = 5;
    thing->nodes = "old";
    const Object before = thing->avDictionaryWithValuesForKeys(thing->names());
    thing->setAvValuesForKeysWithDictionary(object(json), mapping);
    Object after = thing->avDictionaryWithValuesForKeys(thing->names());
    for (const Object::Member& old : before) {
        if (const Value* now = after.find(old.key()); now == nullptr) {
            after.set(old.key(), nullptr);
        } else if (*now == old.value) {
            after.remove(old.key());
        }
    }
    return *AVJSON::toJSON(after);
}

TEST_F(Import, setsPlainKeysAsTheyAreAndNodesAsObjects) {
    const char* const plain[][2] = {
        {R"({"count": "12.5"})", R"({"count":12.5})"},
        {R"({"count": "1,234"})", R"({"count":1234})"},
        {R"({"count": "abc", "Count": 3, "ID": 7, "unknown": {}})", "{}"},
        {R"({"count": true})", R"({"count":true})"},
        {R"({"count": null})", "{}"},
        {R"({"count": []})", R"({"count":null})"}, // exports leave it out
        {R"({"other": "12.5"})", R"({"other":"12.5"})"},
        {R"({"id": 7})", R"({"ident":7})"},
        {R"({"id": "7"})", R"({"ident":"7"})"},
        {R"({"node": {"count": "1"}, "nodes": [1]})", R"({"node":{"count":"1"},"nodes":[{}]})"},
    };
    for (const auto& [json, changed] : plain) {
        EXPECT_EQ(changes(json, {}), changed) << json;
    }
    const char* const mapped[][2] = {
        {R"({"node": {"count": "1", "nodes": [{"count": 2}, [{"node": {"count": "3"}}]]}})",
         R"({"node":{"count":1,"nodes":[{"count":2},{}]}})"},
        {R"({"nodes": [], "nowhere": []})", "{}"},
        {R"({"nodes": "text", "node": null, "nowhere": 5})", "{}"},
    };
    for (const auto& [json, changed] : mapped) {
        EXPECT_EQ(changes(json, nodes), changed) << json;
    }
    EXPECT_EQ(changes(R"({"node": {}, "count": 1})", {{"node", "NoSuchClass"}}),
              R"({"count":1,"node":null})");
}

TEST_F(Import, stopsALevelAtTheKeyThatFailsAndKeepsWhatWasSet) {
    for (const char* failing :
         {R"("nodes": ["text"])", R"("nodes": [{}, null])", R"("nodes": [{}, [5]])",
          R"("nowhere": {})", R"("nowhere": [{}])", R"("strangers": [{}])", R"("@unknown": 5)",
          R"("shout": "computed")"}) {
        const std::string json = std::string(R"({"ident": 1, )") + failing + R"(, "count": 2})";
        EXPECT_EQ(changes(json.c_str(), nodes), R"({"ident":1})") << json;
        expectLog({failed});
    }
    EXPECT_EQ(changes(R"({"node": {"ident": 1, "@x": 0, "count": 2}, "count": 3})", nodes),
              R"({"count":3,"node":{"ident":1}})");
    expectLog({failed});
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
    Object whole{{"count", 1}};
    Array arrays = Array::of({whole});
    for (std::size_t level = 1; level < maximumJsonDepth; ++level) {
        whole = Object{{"node", whole}};
        arrays = level == 1 ? arrays : Array::of({arrays});
    }
    auto top = makeInstance<Thing>();
    top->setAvValuesForKeysWithDictionary(whole, nodes);
    EXPECT_THAT(*AVJSON::toJSON(top->avDictionaryWithValuesForKeys({"node"})),
                testing::HasSubstr(R"({"count":1})"));
    EXPECT_EQ(AVJSON::asObjectOfClass(arrays, "Thing").size(), 1U);
    EXPECT_THROW(
        static_cast<void>(AVJSON::asObjectOfClass(Array::of({Array::of({arrays})}), "Thing")),
        std::length_error);
    top->setAvValuesForKeysWithDictionary(Object{{"node", whole}, {"count", 2}}, nodes);
    expectLog({failed});
    EXPECT_EQ(top->count, Value(2));
}

} // namespace
} // namespace morvellacinto
