#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/foundation/Value.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <thread>

namespace morvellacinto {
namespace {

using testing::ElementsAre;

std::vector<std::string> keysOf(const Object& object) {
    std::vector<std::string> keys;
    for (const Object::Member& member : object) {
        keys.emplace_back(member.key());
    }
    return keys;
}

TEST(Value, KeepsStringsOfEveryLengthAndByte) {
    for (const std::size_t length : {0U, 1U, 13U, 14U, 15U, 4096U}) {
        const std::string text(length, '\0');
        const Value value(text);
        const Value copy = value;
        EXPECT_EQ(copy.asString(), text);
    }
    EXPECT_TRUE(Value(static_cast<const char*>(nullptr)).isNull());
}

TEST(Value, NamesBothKindsWhenReadAsTheWrongOne) {
    try {
        static_cast<void>(Value("x").asObject());
        FAIL();
    } catch (const ValueKindError& error) {
        EXPECT_STREQ(error.what(), "expected an object, found a string");
    }
    EXPECT_THROW(static_cast<void>(Value(true).asDouble()), ValueKindError);
    EXPECT_THROW(static_cast<void>(Value(UINT64_MAX).asInt64()), std::out_of_range);
    EXPECT_THROW(static_cast<void>(Value(-1).asUInt64()), std::out_of_range);
}

TEST(Value, ComparesNumbersByMathematicalValueWithoutRounding) {
    constexpr std::int64_t odd = (INT64_C(1) << 53) + 1;
    EXPECT_EQ(Value(1), Value(1.0));
    EXPECT_EQ(Value(0.5F), Value(0.5));
    EXPECT_NE(Value(odd), Value(static_cast<double>(odd)));
    EXPECT_NE(Value(INT64_MAX), Value(0x1p63));
    EXPECT_NE(Value(UINT64_MAX), Value(-1));
    EXPECT_NE(Value(1), Value(true));
    EXPECT_NE(Value(0.1F), Value(0.1));
    const Value notANumber(std::numeric_limits<double>::quiet_NaN());
    EXPECT_NE(notANumber, notANumber);
}

TEST(Value, ChangesOfOneCopyDoNotShowInAnother) {
    Value original(Object{{"list", Array::of({1, 2})}, {"name", "a string of more than 14 bytes"}});
    const Value copy = original;
    Value list = original.asObject().take("list");
    list.asArray().append(3);
    original.asObject().set("list", list);
    original.asObject().set("name", "other");
    original.asObject().remove("none");
    EXPECT_EQ(copy.asObject().at("list").asArray().size(), 2U);
    EXPECT_EQ(copy.asObject().at("name").asString(), "a string of more than 14 bytes");
    EXPECT_EQ(original.asObject().at("list").asArray().size(), 3U);
}

TEST(Value, CopiesMayBeUsedOnSeveralThreads) {
    const Value shared(Object{{"list", Array::of({"a string of more than 14 bytes", 2})}});
    const auto work = [copy = shared]() mutable {
        for (int round = 0; round < 1000; ++round) {
            Value own = copy;
            own.asObject().set("round", round);
            copy.asObject().set("list", own.asObject().take("list"));
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_EQ(shared.asObject().size(), 1U);
}

TEST(Value, DepthCostsNoStack) {
    Value deep = Array();
    for (int level = 0; level < 1'000'000; ++level) {
        if (level % 2 == 0) {
            deep = Array::of({std::move(deep)});
        } else {
            deep = Object{{"in", std::move(deep)}};
        }
    }
    const Value other = Array::of({deep});
    EXPECT_EQ(deep, Value(deep));
    EXPECT_NE(deep, other);
    EXPECT_FALSE(holdsUnstorable(deep));
}

TEST(Object, KeepsMembersInTheOrderInWhichTheyWereFirstSet) {
    Object object{{"b", 1}, {"a", 2}, {"c", 3}};
    object.set("a", 4);
    EXPECT_TRUE(object.remove("b"));
    object.set("b", 5);
    EXPECT_THAT(keysOf(object), ElementsAre("a", "c", "b"));
    EXPECT_EQ(object, (Object{{"b", 5}, {"c", 3}, {"a", 4}}));
}

TEST(Object, FindsEveryMemberAtEverySizeAlsoAfterRemovals) {
    Object object;
    for (int key = 0; key < 3000; ++key) {
        object.set(std::to_string(key), key);
    }
    for (int key = 0; key < 3000; key += 100) {
        EXPECT_TRUE(object.remove(std::to_string(key)));
    }
    for (int key = 0; key < 3000; ++key) {
        const Value* found = object.find(std::to_string(key));
        ASSERT_EQ(found == nullptr, key % 100 == 0) << key;
        if (found != nullptr) {
            EXPECT_EQ(*found, Value(key));
        }
    }
}

class Tracked : public Instance {
public:
    explicit Tracked(int& alive) : alive_(alive) { ++alive_; }
    ~Tracked() override { --alive_; }

private:
    int& alive_;
};

TEST(Value, SharesAnInstanceAndReleasesItWithTheLastHolder) {
    int alive = 0;
    {
        Value holder(Ref<Instance>(makeInstance<Tracked>(alive)));
        const Value copy = Array::of({holder});
        holder = nullptr;
        EXPECT_EQ(alive, 1);
        EXPECT_TRUE(holdsUnstorable(copy));
    }
    EXPECT_EQ(alive, 0);
}

TEST(Uuid, ParsesStrictlyAndPrintsUpperCase) {
    const auto parsed = Uuid::parse("7b0f8c0e-3D1B-4C0B-9A52-0E6D3C2F4A11");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->text(), "7B0F8C0E-3D1B-4C0B-9A52-0E6D3C2F4A11");
    EXPECT_EQ(Uuid().text(), "00000000-0000-0000-0000-000000000000");
    for (const char* refused :
         {"", "7b0f8c0e3D1B4C0B9A520E6D3C2F4A11", "{7b0f8c0e-3D1B-4C0B-9A52-0E6D3C2F4A1}",
          "7b0f8c0e-3D1B-4C0B-9A52-0E6D3C2F4A1g", "7b0f8c0e-3D1B-4C0B-9A52-0E6D3C2F4A11 ",
          "7b0f8c0e3-D1B-4C0B-9A52-0E6D3C2F4A11"}) {
        EXPECT_FALSE(Uuid::parse(refused)) << refused;
    }
}

} // namespace
} // namespace morvellacinto
