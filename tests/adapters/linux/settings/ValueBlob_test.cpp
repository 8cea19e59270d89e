// SPDX-License-Identifier: MIT
#include "settings/ValueBlob.h"

#include <gtest/gtest.h>

#include <cmath>

namespace morvellacinto::native {
namespace {

using namespace std::string_view_literals;

constexpr std::byte someBytes[] = {std::byte{0}, std::byte{0x80}, std::byte{255}};

Value nested(unsigned levels) {
    Value deep = "bottom";
    for (unsigned level = 0; level < levels; ++level) {
        deep = level % 2 == 0 ? Value(Array::of({deep})) : Value(Object{{"k", deep}});
    }
    return deep;
}

const Value samples[] = {
    Array::of({true, false, 0, -1, 127, 128, INT64_MIN, INT64_MAX, UINT64_MAX}),
    Array::of({59.329F, -0.0F, 0.1, -HUGE_VAL, Date{-1e-9}}),
    Array::of({"", "a\0\xFF"sv, Value(std::span(someBytes)), Array(), Object()}),
    std::string(100'000, 'x'),
    Object{{"", Array::of({1, Object{{"z", Array()}, {"a\0b"sv, 0.5F}}, "last"})}, {"b", 1}},
    nested(512)};

TEST(ValueBlob, EveryKindComesBackAsItWas) {
    for (const Value& value : samples) {
        const std::string blob = encodeValue(value);
        const Value decoded = decodeValue(blob).value();
        EXPECT_EQ(decoded, value);
        EXPECT_EQ(encodeValue(decoded), blob) << "kinds and the order of members";
    }
}

TEST(ValueBlob, BytesOnDiskAreTheSameInEveryVersion) {
    const Value value = Object{{"k", Array::of({-2, 300, 1.0F, 1.0, Date{1}, "s", true})}};
    EXPECT_EQ(encodeValue(value), "\x01\x0B\x01\x01k\x0A\x07\x04\x01\x03\xAC\x02"
                                  "\x05\0\0\x80\x3F\x06\0\0\0\0\0\0\xF0\x3F"
                                  "\x07\0\0\0\0\0\0\xF0\x3F\x08\x01s\x02"sv);
}

TEST(ValueBlob, WhatIsTooDeepOrTooLargeIsRefused) {
    for (const Value& value : {nested(513), Value(std::string(maximumBlobBytes, 'x'))}) {
        EXPECT_THROW(static_cast<void>(encodeValue(value)), std::invalid_argument);
    }
}

TEST(ValueBlob, WhatWasNeverEncodedGivesNothing) {
    const std::string_view broken[] = {
        "\x02\x01"sv,                                 // another version
        "\x01\x01\x01"sv,                             // something behind the value
        "\x01\x0A\x03\x0A\x03\x0A\x03\x01\x01\x01"sv, // counts past the end in sum
    };
    std::string tooDeep = encodeValue(nested(512));
    tooDeep.insert(1, "\x0A\x01");
    EXPECT_EQ(decodeValue(tooDeep), std::nullopt);
    for (const std::string_view blob : broken) {
        EXPECT_EQ(decodeValue(blob), std::nullopt) << testing::PrintToString(std::string(blob));
    }
    const std::string whole = encodeValue(samples[4]);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(decodeValue(std::string_view(whole).substr(0, length)), std::nullopt);
    }
}

} // namespace
} // namespace morvellacinto::native
