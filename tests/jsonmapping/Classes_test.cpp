#include "jsonmapping/HostClasses.h"
#include "support/ScriptedPhoneTest.h"

#include <cmath>
#include <limits>

namespace morvellacinto {
namespace {

using Classes = testing::Test;

/// Every scalar, and what is kept in C++ types.
class Kinds : public AVObject {
    AVJSON_CLASS(Kinds, AVObject, yes, tiny, small, whole, large, count, single, real, text, maybe,
                 texts, flags, place, formatter)

    bool yes = false;
    std::int8_t tiny = -1;
    std::uint16_t small = 1;
    int whole = -1;
    std::int64_t large = -1;
    std::uint64_t count = 1;
    float single = -1;
    double real = -1;
    std::string text = "old";
    std::optional<int> maybe = -1;
    std::vector<std::string> texts{"old"};
    std::vector<bool> flags;
    Ref<Place> place;
    AVValue<"NSNumberFormatter"> formatter;
};

TEST_F(Classes, scalarsConvertNumbersAndStrings) {
    // As {yes, tiny, small, whole, large, count, single, real}.
    const char* const cases[][2] = {
        {R"([2, 300, -5, 3.99, 18446744073709551615, 18446744073709551615, 0.1, "1e3x"])",
         "[true,127,0,3,9223372036854775807,18446744073709551615,0.1,1000]"},
        {R"([0.0, -300.5, "-5", -3.99, "-9223372036854775808", "18446744073709551615", true,
             "-.5"])",
         "[false,-128,0,-3,-9223372036854775808,18446744073709551615,1,-0.5]"},
        {R"(["YES", "-200", 65536.0, " 42abc", 9223372036854775808.0, 18446744073709551616.0, 1,
             "1e"])",
         "[true,-128,65535,42,9223372036854775807,18446744073709551615,1,1]"},
        {R"([" -07", true, 1, "abc", 1, 1, 1, "--5"])", "[true,1,1,0,1,1,1,0]"},
        {R"(["no", 1, 1, "+7", 1, 1, 1, "inf"])", "[false,1,1,7,1,1,1,0]"},
        {R"([1, 1, 1, "12.9", 1, 1, 1, "1e-400"])", "[true,1,1,12,1,1,1,0]"},
        {R"([1, 1, 1, "99999999999999999999", 1, 1, 1, 1])", "[true,1,1,2147483647,1,1,1,1]"},
        {R"([1, 1, 1, "-99999999999999999999", 1, 1, 1, 1])", "[true,1,1,-2147483648,1,1,1,1]"},
    };
    for (const auto& [given, expected] : cases) {
        auto kinds = makeInstance<Kinds>();
        Array held;
        for (const Value& each : array(given)) {
            const auto& member = kinds->avClass().members()[held.size()];
            kinds->setValue(each, member.name.asString());
            held.append(kinds->valueForKey(member.name.asString()).value());
        }
        EXPECT_EQ(writeJson(held), expected);
    }
    auto kinds = makeInstance<Kinds>();
    kinds->setValue(Value(std::numeric_limits<double>::quiet_NaN()), "whole");
    kinds->setValue(Value("-1e400"), "real");
    EXPECT_EQ(kinds->whole, 0);
    EXPECT_EQ(kinds->real, -HUGE_VAL);
}

TEST_F(Classes, propertiesRefuseWhatTheyCannotHold) {
    auto kinds = makeInstance<Kinds>();
    for (const char* name : {"yes", "tiny", "small", "whole", "large", "count", "single", "real"}) {
        const auto old = kinds->valueForKey(name);
        for (const std::optional<Value>& stranger :
             {std::optional<Value>(), {Value()}, {Array()}, {Object()}, {Date{5}}}) {
            EXPECT_THROW(kinds->setValue(stranger, name), ValueKindError) << name;
        }
        EXPECT_EQ(kinds->valueForKey(name), old);
    }
    const Value other = Ref<Instance>(makeInstance<Journey>());
    EXPECT_THROW(kinds->setValue(other, "place"), ValueKindError);
    kinds->setValue(Value(Ref<Instance>(makeInstance<Harbour>())), "place"); // of a subclass
    kinds->setValue(std::nullopt, "place");
    kinds->setValue(Value(), "maybe");
    EXPECT_EQ(kinds->valueForKey("place"), std::nullopt);
    EXPECT_EQ(kinds->maybe, std::nullopt);
    EXPECT_THROW(kinds->setValue(Value(1), "none"), std::out_of_range);
    EXPECT_THROW(makeInstance<Harbour>()->setValue(Value(1), "depth"), std::out_of_range);
}

TEST_F(Classes, attributeTextsFollowThePlatform) {
    const std::pair<const char*, const char*> cases[] = {
        {"yes", "TB,N,V_yes"},
        {"small", "TS,N,V_small"},
        {"count", "TQ,N,V_count"},
        {"maybe", "T@\"NSNumber\",&,N,V_maybe"},
        {"texts", "T@\"NSArray\",&,N,V_texts"},
        {"place", "T@\"Place\",&,N,V_place"},
        {"formatter", "T@\"NSNumberFormatter\",&,N,V_formatter"},
    };
    for (const auto& [name, attributes] : cases) {
        EXPECT_EQ(AVClass::of<Kinds>().find(name)->attributes, attributes);
    }
    EXPECT_EQ(AVClass::of<Harbour>().find("depth")->attributes, "Tf,R,N,V_depth");
    EXPECT_EQ(AVClass::of<Thing>().find("other")->attributes, "T@,&,N,V_other");
    EXPECT_EQ(AVClass::of<Thing>().find("shout")->attributes, "");
    for (const char* name : {"height", "berthCount", "other"}) { // an ancestor's among them
        EXPECT_TRUE(makeInstance<Harbour>()->isNumberProperty(name)) << name;
    }
    for (const char* name : {"count", "text", "Maybe", "none", ""}) {
        EXPECT_FALSE(makeInstance<Kinds>()->isNumberProperty(name)) << name;
    }
}

TEST_F(Classes, followPathsThroughObjectsDictionariesAndArrays) {
    auto thing = makeInstance<Thing>();
    auto inner = makeInstance<Thing>();
    inner->other = object(R"({"a": {"b": 5}, "@count": 9})");
    thing->node = Value(Ref<Instance>(inner));
    EXPECT_EQ(thing->valueForKeyPath("node.other.a.b"), Value(5));
    EXPECT_EQ(thing->valueForKeyPath("node.other.@count"), Value(2));
    thing->nodes = Value(Array::of({thing->node.value(), object(R"({"other": {}})")}));
    EXPECT_EQ(thing->valueForKeyPath("nodes.other.a.b"), Value(Array::of({5, nullptr})));
    thing->nodes = {};
    EXPECT_EQ(thing->valueForKeyPath("nodes.other"), std::nullopt);
    EXPECT_EQ(thing->valueForKeyPath("node.node.none"), std::nullopt);
    EXPECT_EQ(thing->valueForKeyPath("node.other.none.b"), std::nullopt);
    for (const char* path :
         {"none", "node.none", "node.other.@max", "node.shout.length", "node."}) {
        EXPECT_THROW(static_cast<void>(thing->valueForKeyPath(path)), std::out_of_range) << path;
    }
}

class Island : public AVObject {
    AVJSON_CLASS(Island, AVObject, harbour)

    Ref<Harbour> harbour;
};

class Abstract : public AVObject {
    AVJSON_CLASS(Abstract, AVObject)

    virtual void nothing() = 0;
};

TEST_F(Classes, areKnownByNameFromTheFirstThatLeadsToThem) {
    EXPECT_EQ(AVClass::named("Island"), nullptr);
    const AVClass& island = AVClass::of<Island>();
    EXPECT_EQ(AVClass::named("Island"), &island);
    EXPECT_EQ(AVClass::named("Journey"), &AVClass::of<Journey>()); // by Harbour, Place, journeys
    EXPECT_EQ(AVClass::named("AVObject")->base(), nullptr);
    EXPECT_EQ(AVClass::named("island"), nullptr);
    EXPECT_THROW(static_cast<void>(AVClass::of<Abstract>().makeInstance()), std::logic_error);
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
    AVJSON_CLASS(Bay, AVObject, pier)

    Ref<Pier> pier() const { return {}; }
};
} // namespace south

TEST_F(Classes, ofOneNameAreToldApartByTheirNamespaces) {
    const AVClass& north = AVClass::of<north::Pier>();
    EXPECT_EQ(AVClass::named("Pier"), &north);
    EXPECT_EQ(AVClass::of<south::Bay>().name(), "Bay"); // leads to another pier
    EXPECT_THROW(static_cast<void>(AVClass::named("Pier")), std::logic_error);
    EXPECT_EQ(AVClass::named("north::Pier"), &north);
    EXPECT_EQ(AVClass::named("south::Pier"), &AVClass::of<south::Pier>());
    EXPECT_EQ(AVClass::named("outh::Pier"), nullptr);
    EXPECT_FALSE(north.isA(AVClass::of<south::Pier>()));
}

} // namespace
} // namespace morvellacinto
