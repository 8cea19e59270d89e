#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

using Collections = ScriptedPhoneTest;

TEST_F(Collections, turnIntoNewObjects) {
    const Ref<AVObject> made =
        AVJSON::asObjectOfClass(object(R"({"id": 7})"), AVClass::of<Thing>());
    EXPECT_EQ(made->valueForKey("ident"), Value(7));
    const auto place = AVJSON::asObjectOfClass<Place>(
        object(R"({"name": "A", "journeys": [{"to": {"name": "B"}}, {}]})"),
        {{"journeys", "Journey"}, {"to", AVClass::of<Harbour>()}});
    ASSERT_EQ(place->journeys.size(), 2U);
    EXPECT_EQ(place->journeys[0]->title(), "?-B");
    EXPECT_FALSE(AVJSON::asObjectOfClass(object("{}"), "NoSuchClass"));
}

TEST_F(Collections, fillAnExistingObjectOnceForEachElement) {
    const auto target = makeInstance<Thing>();
    EXPECT_EQ(AVJSON::asObjectOfClass(object(R"({"count": 1})"), target).get(), target.get());
    const Value same = Ref<Instance>(target);
    EXPECT_EQ(AVJSON::asObjectOfClass(array(R"([{"count": 2}, [{"ident": 3}], {}])"), target),
              Array::of({same, Array::of({same}), same}));
    EXPECT_EQ(target->count, Value(2));
    EXPECT_EQ(target->ident, Value(3));
    EXPECT_EQ(filled(R"({"nodes": [{"count": 4}, {"ident": 5}]})", {{"nodes", target}})->nodes,
              Value(Array::of({same, same})));
    EXPECT_EQ(target->count, Value(4));
    EXPECT_THROW(NodeClass(Ref<Thing>()), std::invalid_argument);
}

TEST_F(Collections, throwToTheCallerWhatIsNoObject) {
    static_cast<void>(AVClass::of<Thing>());
    EXPECT_TRUE(AVJSON::asObjectOfClass(Array(), "NoSuchClass").empty());
    for (const char* json : {R"(["text"])", "[{}, 5]", "[[null]]"}) {
        EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(array(json), "Thing")),
                     ValueKindError);
    }
    EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(array("[{}]"), "NoSuchClass")),
                 std::invalid_argument);
}

TEST_F(Collections, renderAsCompactJsonOrNothingOrThrow) {
    EXPECT_EQ(AVJSON::toJSON(array(R"([ {"b" : "å"} ])")), R"([{"b":"å"}])");
    EXPECT_EQ(AVJSON::toJSONWS(Array::of({"\xFF"})), std::nullopt);
    for (const Value& stranger :
         {Value(5), Value(Array::of({Date{1}})),
          Value(Array::of({Value(Ref<Instance>(makeInstance<Thing>()))}))}) {
        EXPECT_THROW(static_cast<void>(AVJSON::toJSON(stranger)), JsonWriteError);
    }
}

TEST(MappingWithoutAPlatform, throwsBeforeAnythingHappens) {
    auto thing = makeInstance<Thing>();
    EXPECT_THROW(thing->setAvValuesForKeysWithDictionary(object(R"({"count": 1})")),
                 std::logic_error);
    EXPECT_EQ(thing->count, std::nullopt);
    EXPECT_THROW(static_cast<void>(thing->avDictionaryWithValuesForKeys({})), std::logic_error);
    EXPECT_THROW(static_cast<void>(AVJSON::asObjectOfClass(Array(), "Thing")), std::logic_error);
}

} // namespace
} // namespace morvellacinto
