// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/foundation/Value.h"

#include <gmock/gmock.h>

#include <cmath>

namespace morvellacinto {

TEST(Value, NamesBothKindsWhenReadAsTheWrongOne) {
    EXPECT_THAT([] { static_cast<void>(Value("x").asObject()); },
                ::testing::ThrowsMessage<ValueKindError>("expected an object, found a string"));
    EXPECT_TRUE(Value(static_cast<const char*>(nullptr)).isNull());
    EXPECT_THROW(static_cast<void>(Value(true).asDouble()), ValueKindError);
    EXPECT_THROW(static_cast<void>(Value(UINT64_MAX).asInt64()), std::out_of_range);
    EXPECT_THROW(static_cast<void>(Value(-1).asUInt64()), std::out_of_range);
}

TEST(Value, ComparesNumbersByMathematicalValueAndContainersMemberByMember) {
    constexpr std::int64_t odd = (INT64_C(1) << 53) + 1;
    const std::byte bytes[] = {std::byte{1}, std::byte{2}};
    const Value one(std::span<const std::byte>(bytes, 1));
    const Value two(std::span<const std::byte>(bytes + 1, 1));
    using Pair = std::pair<Value, Value>;
    for (const auto& [left, right] :
         {Pair(1, 1.0), Pair(0.5F, 0.5), Pair(INT64_C(3) << 61, 0x3p61), Pair(one, one),
          Pair(Object{{"b", 5}, {"a", 4}}, Object{{"a", 4}, {"b", 5}})}) {
        EXPECT_TRUE(left == right && right == left) << nameOf(left.kind());
    }
    for (const auto& [left, right] :
         {Pair(odd, static_cast<double>(odd)), Pair(INT64_MAX, 0x1p63), Pair(UINT64_MAX, -1),
          Pair(1, true), Pair(1, 1.5), Pair(0.1F, 0.1), Pair(std::nan(""), std::nan("")),
          Pair(one, two), Pair(one, Value(std::span(bytes))),
          Pair(Array::of({1}), Array::of({1, 2})),
          Pair(makeInstance<Instance>(), makeInstance<Instance>()),
          Pair(Object{{"a", 4}}, Object{{"a", 4}, {"b", 5}})}) {
        EXPECT_FALSE(left == right || right == left) << nameOf(left.kind());
    }
}

TEST(Value, ChangesOfOneCopyDoNotShowInAnother) {
    Value original(Object{{"list", Array::of({1, 2})}, {"name", "a string of more than 14 bytes"}});
    const Value copy = original;
    Value list = original.asObject().take("list");
    list.asArray().append(3);
    original.asObject().set("list", list);
    original.asObject().set("name", "other");
    EXPECT_EQ(copy.asObject().at("list").asArray().size(), 2U);
    EXPECT_EQ(copy.asObject().at("name").asString(), "a string of more than 14 bytes");
    EXPECT_EQ(original.asObject().at("list").asArray().size(), 3U);
}

TEST(Value, DepthCostsNoStack) {
    Value deep = Array();
    for (int level = 0; level < 500'000; ++level) {
        deep = Object{{"in", Array::of({std::move(deep)})}};
    }
    EXPECT_EQ(deep, Value(deep));
    EXPECT_FALSE(holdsUnstorable(deep));
}

TEST(Object, KeepsOrderAndFindsEveryMemberAtEverySizeAlsoAfterRemovalsAndInACopy) {
    for (const int size : {5, 3000}) {
        Object object;
        for (int key = size; key > 0; --key) {
            object.set(std::to_string(key), 0);
        }
        const Object before = object;
        for (int key = 1; key <= size; ++key) {
            EXPECT_TRUE(key % 5 != 0 || object.remove(std::to_string(key)));
        }
        EXPECT_FALSE(object.remove("none"));
        for (int key = 1; key <= size; ++key) {
            object.set(std::to_string(key), key);
        }
        EXPECT_EQ(object.begin()->key(), std::to_string(size - 1));
        EXPECT_EQ((object.end() - 1)->key(), std::to_string(size));
        for (int key = 1; key <= size; ++key) {
            EXPECT_EQ(object.at(std::to_string(key)), Value(key));
            EXPECT_EQ(before.at(std::to_string(key)), Value(0));
        }
        EXPECT_EQ(object.size(), static_cast<std::size_t>(size));
    }
}

struct Tracked : Instance {
    explicit Tracked(bool& flag) : isGone(flag) {}
    ~Tracked() override { isGone = true; }
    bool& isGone;
};

TEST(Value, SharesAnInstanceAndReleasesItWithTheLastHolder) {
    bool isGone = false;
    {
        Value holder(Ref<Instance>(makeInstance<Tracked>(isGone)));
        const Value copy = Array::of({holder});
        holder = nullptr;
        EXPECT_FALSE(isGone);
        EXPECT_TRUE(holdsUnstorable(copy));
    }
    EXPECT_TRUE(isGone);
}

TEST(Uuid, ParsesStrictlyAndPrintsUpperCase) {
    EXPECT_EQ(Uuid::parse("7b0f8c0e-3D1B-4C0B-9A52-0E6D3C2F4A11").value().text(),
              "7B0F8C0E-3D1B-4C0B-9A52-0E6D3C2F4A11");
    EXPECT_EQ(Uuid().text(), "00000000-0000-0000-0000-000000000000");
    for (const char* refused :
         {"", "7b0f8c0e3D1B4C0B9A520E6D3C2F4A11", "{7b0f8c0e-3D1B-4C0B-9A52-0E6D3C2F4A1}",
          "7b0f8c0e-3D1B-4C0B-9A52-0E6D3C2F4A1g", "7b0f8c0e-3D1B-4C0B-9A52-0E6D3C2F4A11 ",
          "7b0f8c0e03D1B-4C0B-9A52-0E6D3C2F4A11"}) {
        EXPECT_FALSE(Uuid::parse(refused)) << refused;
    }
}

} // namespace morvellacinto
