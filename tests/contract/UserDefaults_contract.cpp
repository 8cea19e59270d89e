#include "contract/Contracts.h"

#include "morvellacinto/foundation/Array.h"
#include "morvellacinto/foundation/Object.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>

namespace morvellacinto::contract {
namespace {

using namespace std::string_view_literals;

TEST_P(UserDefaultsContract, EveryKindOfValueComesBackWithItsKind) {
    platform::UserDefaults& defaults = platform().standardUserDefaults();
    const std::byte bytes[] = {std::byte{0}, std::byte{255}};
    const Value values[] = {
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
    for (const Value& value : values) {
        defaults.setObjectForKey(value, "key");
        EXPECT_TRUE(defaults.synchronize());
        const auto read = defaults.objectForKey("key");
        ASSERT_TRUE(read.has_value());
        EXPECT_EQ(read->kind(), value.kind());
        EXPECT_EQ(*read, value);
    }
    EXPECT_EQ(defaults.objectForKey("key")->asObject().begin()->key(), "z") << "members in order";
    defaults.objectForKey("key")->asObject().set("z", 3);
    EXPECT_EQ(defaults.objectForKey("key"), values[11]) << "a caller's copy is its own";
}

TEST_P(UserDefaultsContract, SetsReplacesAndRemovesUnderExactlyOneKey) {
    platform::UserDefaults& defaults = platform().standardUserDefaults();
    EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
    defaults.removeObjectForKey("key");
    defaults.setObjectForKey("first", "key");
    defaults.setObjectForKey("other", "Key");
    defaults.setObjectForKey(2, "key");
    EXPECT_EQ(defaults.objectForKey("key"), Value(2));
    defaults.removeObjectForKey("key");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(defaults.objectForKey("key"), std::nullopt);
    EXPECT_EQ(defaults.objectForKey("Key"), Value("other"));
}

TEST_P(UserDefaultsContract, RefusesWhatItCannotKeepAndKeepsTheEarlierValue) {
    platform::UserDefaults& defaults = platform().standardUserDefaults();
    defaults.setObjectForKey("kept", "key");
    const Value refused[] = {
        nullptr,
        Object{{"a", Array::of({Object{{"b", nullptr}}})}},
        Array::of({makeInstance<Instance>()}),
    };
    for (const Value& value : refused) {
        EXPECT_THROW(defaults.setObjectForKey(value, "key"), std::invalid_argument);
    }
    EXPECT_EQ(defaults.objectForKey("key"), Value("kept"));
}

} // namespace
} // namespace morvellacinto::contract
