// SPDX-License-Identifier: MIT
#include "Require.h"

#include "morvellacinto/foundation/Json.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <bit>

using namespace morvellacinto;

namespace {

// Where the second reader is more lenient on purpose: deep nesting, scalars at the top, and zero
// bytes behind the text.
bool isComparable(std::string_view text, const nlohmann::ordered_json& read) {
    std::size_t openings = 0;
    for (const char character : text) {
        openings += character == '[' || character == '{' ? 1U : 0U;
    }
    return openings <= maximumJsonDepth && (read.is_discarded() || read.is_structured()) &&
           text.find('\0') == std::string_view::npos;
}

// Whether the two are the same to the bit and in the same order; numbers of 64 bits alike, but for
// minus zero, which only mine keeps.
bool isSame(const Value& mine, const nlohmann::ordered_json& theirs) {
    switch (mine.kind()) {
    case Value::Kind::null:
        return theirs.is_null();
    case Value::Kind::boolean:
        return theirs.is_boolean() && mine.asBool() == theirs.get<bool>();
    case Value::Kind::integer:
        return theirs.is_number_integer() && writeJsonFragment(mine) == theirs.dump();
    case Value::Kind::float64: {
        const double number = mine.asDouble();
        return number == 0 ? theirs == 0
                           : theirs.is_number_float() &&
                                 std::bit_cast<std::uint64_t>(number) ==
                                     std::bit_cast<std::uint64_t>(theirs.get<double>());
    }
    case Value::Kind::string:
        return theirs.is_string() && mine.asString() == theirs.get_ref<const std::string&>();
    case Value::Kind::array: {
        const Array& elements = mine.asArray();
        return theirs.is_array() &&
               std::equal(elements.begin(), elements.end(), theirs.begin(), theirs.end(), isSame);
    }
    case Value::Kind::object: {
        const Object& members = mine.asObject();
        auto other = theirs.begin();
        return theirs.is_object() && members.size() == theirs.size() &&
               std::all_of(members.begin(), members.end(), [&](const Object::Member& member) {
                   const bool same = member.key() == other.key() && isSame(member.value, *other);
                   ++other;
                   return same;
               });
    }
    default:
        return false;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::optional<Value> mine = readJson(text);
    const auto theirs = nlohmann::ordered_json::parse(text, nullptr, false);
    if (isComparable(text, theirs)) {
        require(mine.has_value() == !theirs.is_discarded(), "both readers give the same verdict");
        if (mine) {
            require(isSame(*mine, theirs), "both readers give the same value");
        }
    }
    return 0;
}
