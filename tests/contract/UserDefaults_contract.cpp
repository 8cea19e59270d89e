#include "contract/Contracts.h"

#include "morvellacinto/foundation/Array.h"
#include "morvellacinto/foundation/Object.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace morvellacinto::contract {
namespace {

using namespace std::string_view_literals;

TEST_P(UserDefaultsContract, EveryKindOfValueComesBackWithItsKind) {
    platform::UserDefaults& defaults = platform().standardUserDefaults();
    const std::byte bytes[] = {std::byte{0}, std::byte{255}};
    const std::vector<Value> values = {
        true,
        std::numeric_limits<std::int64_t>::min(),
        std::numeric_limits<std::uint64_t>::max(),
        59.329F,
        0.1,
        "",
        "å\0b"sv,
        std::string(100'000, 'x'),
        Date{1'700'000'000.123456},
        Value(std::span(bytes)),
        Array(),
        Object{{"z", Array::of({1, Object{{"deep", Date{0.5}}}})}, {"a", false}},
    };
    for (std::size_t i = 0; i < values.size(); ++i) {
        defaults.setObjectForKey(values[i], "key" + std::to_string(i));
    }
    EXPECT_TRUE(defaults.synchronize());
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto value = defaults.objectForKey("key" + std::to_string(i));
        ASSERT_TRUE(value.has_value()) << i;
        EXPECT_EQ(value->kind(), values[i].kind()) << i;
        EXPECT_EQ(*value, values[i]) << i;
    }
    EXPECT_EQ(defaults.objectForKey("key11")->asObject().begin()->key(), "z") << "members in order";
}

TEST_P(UserDefaultsContract, SetsReplacesAndRemovesUnderExactlyOneKey) {
    platform::UserDefaults& defaults = platform().standardUserDefaults();
    EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
    defaults.removeObjectForKey("key");
    defaults.setObjectForKey("first", "key");
    defaults.setObjectForKey("other", "Key");
    defaults.setObjectForKey(2, "key");
    EXPECT_EQ(defaults.objectForKey("key"), Value(2));
    EXPECT_EQ(defaults.objectForKey("ke"), std::nullopt);
    defaults.removeObjectForKey("key");
    EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
    EXPECT_EQ(defaults.objectForKey("Key"), Value("other"));
}

TEST_P(UserDefaultsContract, RefusesWhatItCannotKeepAndKeepsTheEarlierValue) {
    platform::UserDefaults& defaults = platform().standardUserDefaults();
    defaults.setObjectForKey("kept", "key");
    const Value refused[] = {
        nullptr,
        Array::of({1, nullptr}),
        Object{{"a", Array::of({Object{{"b", nullptr}}})}},
        makeInstance<Instance>(),
        Array::of({makeInstance<Instance>()}),
    };
    for (const Value& value : refused) {
        EXPECT_THROW(defaults.setObjectForKey(value, "key"), std::invalid_argument);
    }
    EXPECT_EQ(defaults.objectForKey("key"), Value("kept"));
    EXPECT_TRUE(defaults.synchronize());
}

TEST_P(UserDefaultsContract, WhatACallerDoesToItsOwnCopyChangesNothingStored) {
    platform::UserDefaults& defaults = platform().standardUserDefaults();
    Object object{{"a", 1}};
    defaults.setObjectForKey(object, "key");
    object.set("a", 2);
    auto read = defaults.objectForKey("key");
    ASSERT_TRUE(read.has_value());
    read->asObject().set("a", 3);
    EXPECT_EQ(defaults.objectForKey("key"), Value(Object{{"a", 1}}));
}

TEST_P(UserDefaultsContract, AReadThatRacesAWriteSeesTheOldOrTheNewValue) {
    platform::UserDefaults& defaults = platform().standardUserDefaults();
    const Value old = std::string(300, 'o');
    const Value fresh = Object{{"text", std::string(300, 'n')}};
    defaults.setObjectForKey(old, "key");
    std::atomic<bool> wrong = false;
    std::atomic<bool> done = false;
    std::thread reader([&] {
        for (int i = 0; i < 2000 && !wrong; ++i) {
            const auto value = defaults.objectForKey("key");
            wrong = !value.has_value() || (*value != old && *value != fresh);
        }
        done = true;
    });
    for (int i = 0; !done; ++i) {
        defaults.setObjectForKey(i % 2 == 0 ? fresh : old, "key");
    }
    reader.join();
    EXPECT_FALSE(wrong);
}

} // namespace
} // namespace morvellacinto::contract
