#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

using Import = ScriptedPhoneTest;

const std::string failed = "dict init failed";

const NodeMapping nodes{{"node", "Thing"},
                        {"nodes", AVClass::of<Thing>()},
                        {"nowhere", AVClass::of<Thing>()},
                        {"strangers", "NoSuchClass"}};

/// The properties that an import changes, as JSON; null for one that holds nothing any more.
std::string changes(const std::string& json, const NodeMapping& mapping) {
    const std::vector<std::string> names{"ident", "count", "node",
                                         "nodes", "other", "aNameOfManyLetters"};
    auto thing = makeInstance<Thing>();
    thing->count = -1;
    thing->node = 5;
    thing->nodes = "old";
    const Object before = thing->avDictionaryWithValuesForKeys(names);
    thing->setAvValuesForKeysWithDictionary(object(json), mapping);
    Object after = thing->avDictionaryWithValuesForKeys(names);
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
    const struct {
        const char* json;
        const char* changed;
        NodeMapping mapping;
    } cases[] = {
        {R"({"count": "12.5"})", R"({"count":12.5})", {}},
        {R"({"count": "1,234"})", R"({"count":1234})", {}},
        {R"({"count": "abc", "Count": 3, "ID": 7, "unknown": {}})", "{}", {}},
        {R"({"aNameOfManyLetters": "5"})", R"({"aNameOfManyLetters":5})", {}},
        {R"({"count": true})", R"({"count":true})", {}},
        {R"({"count": null})", "{}", {}},
        {R"({"count": []})", R"({"count":null})", {}}, // exports leave it out
        {R"({"other": "12.5"})", R"({"other":"12.5"})", {}},
        {R"({"id": 7})", R"({"ident":7})", {}},
        {R"({"id": "7"})", R"({"ident":"7"})", {}},
        {R"({"@count": "x", "a": 1, "b": 2})", R"({"node":3})", {}},
        {R"({"@count": {"count": 9}})",
         R"({"node":{"count":9}})",
         {{"@count", AVClass::of<Thing>()}}},
        {R"({"node": {"count": "1"}, "nodes": [1]})", R"({"node":{"count":"1"},"nodes":[{}]})", {}},
        {R"({"node": {"count": "1", "nodes": [{"count": 2}, [{"node": {"count": "3"}}]]}})",
         R"({"node":{"count":1,"nodes":[{"count":2},{}]}})", nodes},
        {R"({"nodes": [], "nowhere": []})", "{}", nodes},
        {R"({"nodes": "text", "node": null, "nowhere": 5})", "{}", nodes},
        {R"({"node": {}, "count": 1})", R"({"count":1,"node":null})", {{"node", "NoSuchClass"}}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(changes(each.json, each.mapping), each.changed) << each.json;
    }
}

TEST_F(Import, stopsALevelAtTheKeyThatFailsAndKeepsWhatWasSet) {
    for (const std::string failing :
         {R"("nodes": ["text"])", R"("nodes": [{}, null])", R"("nodes": [{}, [5]])",
          R"("nowhere": {})", R"("nowhere": [{}])", R"("strangers": [{}])", R"("@unknown": 5)",
          R"("shout": "computed")"}) {
        EXPECT_EQ(changes(R"({"ident": 1, )" + failing + R"(, "count": 2})", nodes),
                  R"({"ident":1})")
            << failing;
        expectLog({failed});
    }
    EXPECT_EQ(changes(R"({"node": {"ident": 1, "@x": 0, "count": 2}, "count": 3})", nodes),
              R"({"count":3,"node":{"ident":1}})");
    expectLog({failed});
}

TEST_F(Import, asksTheObjectBeingFilled) {
    auto harbour = makeInstance<Harbour>();
    harbour->setAvValuesForKeysWithDictionary(
        object(R"({"id": "12 metres", "anchorages": "7", "name": "Visby", "height": "1,000"})"));
    harbour->setAvValuesForKeysWithDictionary(object(R"({"anchorages": -1, "id": 1})"));
    expectLog({failed});
    EXPECT_EQ(harbour->berths(), 7);
    EXPECT_EQ(harbour->ident, 12);
    EXPECT_EQ(harbour->Place::name, "Visby");
    EXPECT_EQ(harbour->height, 1000.0);
}

TEST_F(Import, fillsAnExistingObjectOnceForEachElement) {
    const auto target = makeInstance<Thing>();
    const Value same = Ref<Instance>(target);
    EXPECT_EQ(AVJSON::asObjectOfClass(object(R"({"count": 1})"), target).get(), target.get());
    EXPECT_EQ(AVJSON::asObjectOfClass(array(R"([{"count": 2}, [{"ident": 3}], {}])"), target),
              Array::of({same, Array::of({same}), same}));
    EXPECT_EQ(target->count, Value(2));
    EXPECT_EQ(target->ident, Value(3));
    EXPECT_THROW(NodeClass(Ref<Thing>()), std::invalid_argument);
}

TEST_F(Import, ofAnArrayThrowsToTheCallerWhatIsNoObject) {
    EXPECT_FALSE(AVJSON::asObjectOfClass(object("{}"), "NoSuchClass"));
    EXPECT_TRUE(AVJSON::asObjectOfClass(Array(), "NoSuchClass").empty());
    for (const char* json : {R"(["text"])", "[{}, 5]", "[[null]]"}) {
        EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(array(json), "Thing")),
                     ValueKindError);
    }
    EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(array("[{}]"), "NoSuchClass")),
                 std::invalid_argument);
    Array deep;
    for (std::size_t level = 1; level < maximumJsonDepth; ++level) {
        deep = Array::of({deep});
    }
    EXPECT_EQ(AVJSON::asObjectOfClass(deep, "Thing"), deep);
    EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(Array::of({deep}), "Thing")),
                 std::length_error);
}

TEST(ImportWithoutAPlatform, throwsBeforeAnythingHappens) {
    auto thing = makeInstance<Thing>();
    EXPECT_THROW(thing->setAvValuesForKeysWithDictionary(object(R"({"count": 1})")),
                 std::logic_error);
    EXPECT_EQ(thing->count, std::nullopt);
    EXPECT_THROW(static_cast<void>(thing->avDictionaryWithValuesForKeys({})), std::logic_error);
    EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(Array(), "Thing")), std::logic_error);
}

} // namespace
} // namespace morvellacinto
