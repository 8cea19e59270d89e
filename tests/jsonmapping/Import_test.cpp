#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

using Import = ScriptedPhoneTest;

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
        {R"({"count": "1,234"})", R"({"count":1234})"},
        {R"({"count": "abc", "Count": 3, "ID": 7, "unknown": {}})", R"({"count":-1})"},
        {R"({"count": true})", R"({"count":true})"},
        {R"({"count": null})", R"({"count":-1})"},
        {R"({"count": []})", "{}"}, // exports leave it out
        {R"({"aNameOfManyLetters": "5"})", R"({"count":-1,"aNameOfManyLetters":5})"},
        {R"({"other": "12.5"})", R"({"count":-1,"other":"12.5"})"},
        {R"({"id": 7})", R"({"count":-1,"ident":7})"},
        {R"({"id": "7"})", R"({"count":-1,"ident":"7"})"},
        {R"({"@count": "x", "a": 1, "b": 2})", R"({"count":-1,"node":3})"},
        {R"({"@count": {"count": 9}})", R"({"count":-1,"node":{"count":9}})", nodes},
        {R"({"node": {"count": "1"}})", R"({"count":-1,"node":{"count":"1"}})"},
        {R"({"node": {"count": "1", "nodes": [{"ident": 2}, [{"node": {"count": "3"}}]]}})",
         R"({"count":-1,"node":{"count":1,"nodes":[{"ident":2},{}]}})", nodes},
        {R"({"count": []})", R"({"count":-1})", {{"count", "Thing"}}},
        {R"({"count": "5", "node": null})", R"({"count":-1})", {{"count", "Thing"}}},
        {R"({"count": {}, "ident": 1})", R"({"ident":1})", {{"count", "NoSuchClass"}}},
        {R"({"nowhere": [], "ident": 1})", R"({"count":-1,"ident":1})", nodes},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(imported(each.json, each.mapping), each.held) << each.json;
    }
}

TEST_F(Import, stopsALevelAtTheKeyThatFailsAndKeepsWhatWasSet) {
    for (const std::string failing :
         {R"("nodes": ["text"])", R"("nodes": [{}, null])", R"("nodes": [{}, [5]])",
          R"("nowhere": {})", R"("nowhere": [{}])", R"("strangers": [{}])", R"("@unknown": 5)",
          R"("shout": "computed")"}) {
        EXPECT_EQ(imported(R"({"ident": 1, )" + failing + R"(, "count": 2})", nodes),
                  R"({"count":-1,"ident":1})")
            << failing;
        expectLog({failed});
    }
    EXPECT_EQ(imported(R"({"node": {"ident": 1, "@x": 0, "count": 2}, "count": 3})", nodes),
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
