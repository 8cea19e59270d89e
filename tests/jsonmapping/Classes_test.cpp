// SPDX-License-Identifier: MIT
#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

TEST(Classes, setWhatTheirPropertiesHoldAndRefuseTheRest) {
    auto journey = makeInstance<Journey>();
    auto harbour = makeInstance<Harbour>();
    const Value place = Ref<Instance>(harbour);
    journey->setValue(place, "from"); // of a subclass
    EXPECT_THROW(journey->setValue(Value(Ref<Instance>(journey)), "from"), ValueKindError);
    EXPECT_EQ(journey->valueForKey("from"), place);
    journey->setValue(std::nullopt, "from");
    EXPECT_EQ(journey->valueForKey("from"), std::nullopt);
    harbour->height = 5;
    harbour->setValue(Value(), "height");
    EXPECT_EQ(harbour->height, std::nullopt);
    EXPECT_THROW(harbour->setValue(std::nullopt, "ident"), ValueKindError);
    const char* const noText = nullptr;
    for (const char* name : {"none", "depth", noText}) {
        EXPECT_THROW(harbour->setValue(Value(1), name), std::out_of_range);
    }
    EXPECT_EQ(AVClass::named(noText), nullptr);
    EXPECT_EQ(NodeClass(noText).described(), nullptr);
}

TEST(Classes, haveAttributeTextsLikeThePlatform) {
    const std::pair<const AVMember*, const char*> cases[] = {
        {AVClass::of<Thing>().find("count"), "T@\"NSNumber\",&,N,V_count"},
        {AVClass::of<Thing>().find("shout"), ""},
        {AVClass::of<Journey>().find("to"), "T@\"Place\",&,N,V_to"},
        {AVClass::of<Harbour>().find("depth"), "Tf,R,N,V_depth"},
        {AVClass::of<Harbour>().find("berths"), "Ti,N,V_berths"},
        {AVClass::of<Harbour>().find("berthCount"), "T@\"NSNumberFormatter\",R,N,V_berths"}};
    for (const auto& [member, attributes] : cases) {
        EXPECT_EQ(member->attributes, attributes);
    }
    EXPECT_TRUE(makeInstance<Harbour>()->isNumberProperty("berthCount"));
}

TEST(Classes, followPathsThroughObjectsDictionariesAndArrays) {
    auto thing = makeInstance<Thing>();
    auto inner = makeInstance<Thing>();
    inner->other = object(R"({"a": {"b": 5}, "@count": 9})");
    thing->node = Value(Ref<Instance>(inner));
    thing->other = Array::of({thing->node.value(), object(R"({"other": {}})")});
    EXPECT_EQ(thing->valueForKeyPath("node.other.a.b"), 5);
    EXPECT_EQ(thing->valueForKeyPath("node.other.@count"), 2);
    EXPECT_EQ(thing->valueForKeyPath("other.other.a.b"), Array::of({5, nullptr}));
    for (const char* path : {"nodes.other", "node.node.none", "node.other.none.b"}) {
        EXPECT_EQ(thing->valueForKeyPath(path), std::nullopt) << path;
    }
    for (const char* path :
         {"none", "node.none", "node.other.@max", "node.shout.length", "node."}) {
        EXPECT_THROW(static_cast<void>(thing->valueForKeyPath(path)), std::out_of_range) << path;
    }
}

namespace north {
class Pier : public AVObject {
    AVJSON_CLASS(Pier, AVObject)
};
} // namespace north
namespace south {
class Pier : public AVObject {
    AVJSON_CLASS(Pier, AVObject)
};
class Bay : public AVObject {
    AVJSON_CLASS(Bay, AVObject, pier, harbour)

    Ref<Pier> pier() const { return {}; }
    Ref<Harbour> harbour;
};
} // namespace south

TEST(Classes, areKnownByNameFromTheFirstThatLeadsToThem) {
    EXPECT_EQ(AVClass::named("Pier"), nullptr);
    const AVClass& north = AVClass::of<north::Pier>();
    EXPECT_EQ(AVClass::named("Pier"), &north);
    static_cast<void>(AVClass::of<south::Bay>());                  // leads to another pier
    EXPECT_EQ(AVClass::named("Journey"), &AVClass::of<Journey>()); // by Harbour, Place, journeys
    EXPECT_THROW(static_cast<void>(AVClass::named("Pier")), std::logic_error);
    EXPECT_EQ(AVClass::named("north::Pier"), &north);
    EXPECT_EQ(AVClass::named("south::Pier"), &AVClass::of<south::Pier>());
    EXPECT_EQ(AVClass::named("outh::Pier"), nullptr);
}

} // namespace
} // namespace morvellacinto
