// SPDX-License-Identifier: MIT
#include "ValueBlob.h"

#include <bit>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr char blobVersion = 1;

// Stored: never renumber.
enum class Mark : unsigned char {
    no = 1,
    yes = 2,
    natural = 3,  // varint
    negative = 4, // varint of -1 - number
    float32 = 5,  // bits, little-endian
    float64 = 6,
    date = 7,   // as float64
    string = 8, // varint length, then the bytes
    bytes = 9,
    array = 10,  // varint count, then the elements
    object = 11, // varint count, then each key as varint length and bytes, its value behind it
};

void putVarint(std::string& blob, std::uint64_t number) {
    for (; number >= 0x80; number >>= 7U) {
        blob += static_cast<char>(number | 0x80U);
    }
    blob += static_cast<char>(number);
}

void put(std::string& blob, Mark mark) { blob += static_cast<char>(mark); }

void put(std::string& blob, Mark mark, std::uint64_t number) {
    put(blob, mark);
    putVarint(blob, number);
}

template <class Bits>
void putFixed(std::string& blob, Mark mark, Bits bits) {
    put(blob, mark);
    for (std::size_t index = 0; index < sizeof bits; ++index) {
        blob += static_cast<char>(bits >> (8U * index));
    }
}

void putText(std::string& blob, std::string_view text) {
    putVarint(blob, text.size());
    blob += text;
}

void putValue(std::string& blob, const Value& value, unsigned depth) {
    if (depth > maximumBlobDepth) {
        throw std::invalid_argument("a stored value cannot be inside more than " +
                                    std::to_string(maximumBlobDepth) + " others");
    }
    switch (value.kind()) {
    case Value::Kind::boolean:
        return put(blob, value.asBool() ? Mark::yes : Mark::no);
    case Value::Kind::integer:
        return value.asDouble() >= 0
                   ? put(blob, Mark::natural, value.asUInt64())
                   : put(blob, Mark::negative, ~static_cast<std::uint64_t>(value.asInt64()));
    case Value::Kind::float32:
        return putFixed(blob, Mark::float32, std::bit_cast<std::uint32_t>(value.asFloat()));
    case Value::Kind::float64:
        return putFixed(blob, Mark::float64, std::bit_cast<std::uint64_t>(value.asDouble()));
    case Value::Kind::date:
        return putFixed(blob, Mark::date, std::bit_cast<std::uint64_t>(value.asDate()));
    case Value::Kind::string:
        put(blob, Mark::string);
        return putText(blob, value.asString());
    case Value::Kind::bytes: {
        const std::span<const std::byte> bytes = value.asBytes();
        put(blob, Mark::bytes);
        return putText(blob, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    case Value::Kind::array:
        put(blob, Mark::array, value.asArray().size());
        for (const Value& element : value.asArray()) {
            putValue(blob, element, depth + 1);
        }
        return;
    case Value::Kind::object:
        put(blob, Mark::object, value.asObject().size());
        for (const Object::Member& member : value.asObject()) {
            putText(blob, member.key());
            putValue(blob, member.value, depth + 1);
        }
        return;
    case Value::Kind::null:
    case Value::Kind::instance:
        throw std::invalid_argument(std::string(nameOf(value.kind())) +
                                    " cannot be stored, alone or inside another value");
    }
}

// The blob is at fault.
struct Unreadable {};

// These take from the front, and throw Unreadable when there is too little.
std::string_view takeBytes(std::string_view& blob, std::uint64_t count) {
    if (count > blob.size()) {
        throw Unreadable();
    }
    const std::string_view taken = blob.substr(0, static_cast<std::size_t>(count));
    blob.remove_prefix(taken.size());
    return taken;
}

template <class Bits>
Bits takeFixed(std::string_view& blob) {
    Bits bits = 0;
    for (unsigned shift = 0; const char byte : takeBytes(blob, sizeof bits)) {
        bits |= static_cast<Bits>(Bits{static_cast<unsigned char>(byte)} << shift);
        shift += 8;
    }
    return bits;
}

std::uint64_t takeVarint(std::string_view& blob) {
    std::uint64_t number = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        const auto next = takeFixed<unsigned char>(blob);
        number |= std::uint64_t{next & 0x7FU} << shift;
        if (next < 0x80) {
            return number;
        }
    }
    throw Unreadable();
}

std::string_view takeText(std::string_view& blob) { return takeBytes(blob, takeVarint(blob)); }

// Reserves nothing: a count is believed only as far as there are bytes behind it.
Value takeValue(std::string_view& blob, unsigned depth) {
    if (depth > maximumBlobDepth) {
        throw Unreadable();
    }
    switch (Mark{takeFixed<unsigned char>(blob)}) {
    case Mark::no:
        return false;
    case Mark::yes:
        return true;
    case Mark::natural:
        return takeVarint(blob);
    case Mark::negative:
        return static_cast<std::int64_t>(~takeVarint(blob));
    case Mark::float32:
        return std::bit_cast<float>(takeFixed<std::uint32_t>(blob));
    case Mark::float64:
        return std::bit_cast<double>(takeFixed<std::uint64_t>(blob));
    case Mark::date:
        return std::bit_cast<Date>(takeFixed<std::uint64_t>(blob));
    case Mark::string:
        return takeText(blob);
    case Mark::bytes:
        return Value(std::as_bytes(std::span(takeText(blob))));
    case Mark::array: {
        Array array;
        for (std::uint64_t left = takeVarint(blob); left > 0; --left) {
            array.append(takeValue(blob, depth + 1));
        }
        return array;
    }
    case Mark::object: {
        Object object;
        for (std::uint64_t left = takeVarint(blob); left > 0; --left) {
            const std::string_view key = takeText(blob);
            object.set(key, takeValue(blob, depth + 1));
        }
        return object;
    }
    }
    throw Unreadable();
}

} // namespace

std::string encodeValue(const Value& value) {
    std::string blob(1, blobVersion);
    putValue(blob, value, 0);
    if (blob.size() > maximumBlobBytes) {
        throw std::invalid_argument("a stored value cannot take more than " +
                                    std::to_string(maximumBlobBytes) + " bytes");
    }
    return blob;
}

std::optional<Value> decodeValue(std::string_view blob) {
    try {
        if (takeFixed<unsigned char>(blob) == blobVersion) {
            std::optional<Value> value = takeValue(blob, 0);
            return blob.empty() ? std::move(value) : std::nullopt;
        }
    } catch (const Unreadable&) {
        // Not of `encodeValue`'s making.
    }
    return std::nullopt;
}

} // namespace morvellacinto::native
