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

void put(std::string& blob, Mark mark) { blob += static_cast<char>(mark); }

void putVarint(std::string& blob, std::uint64_t number) {
    for (; number >= 0x80; number >>= 7U) {
        blob += static_cast<char>(number | 0x80U);
    }
    blob += static_cast<char>(number);
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

// `room` is how many containers may still stand in one another.
void putValue(std::string& blob, const Value& value, unsigned room) {
    if (room == 0 && (value.isArray() || value.isObject())) {
        throw std::invalid_argument("a stored value cannot have more than " +
                                    std::to_string(maximumBlobDepth) +
                                    " arrays and objects in one another");
    }
    switch (value.kind()) {
    case Value::Kind::boolean:
        return put(blob, value.asBool() ? Mark::yes : Mark::no);
    case Value::Kind::integer: {
        const bool isNatural = value.asDouble() >= 0;
        put(blob, isNatural ? Mark::natural : Mark::negative);
        return putVarint(blob, isNatural ? value.asUInt64()
                                         : ~static_cast<std::uint64_t>(value.asInt64()));
    }
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
        put(blob, Mark::array);
        putVarint(blob, value.asArray().size());
        for (const Value& element : value.asArray()) {
            putValue(blob, element, room - 1);
        }
        return;
    case Value::Kind::object:
        put(blob, Mark::object);
        putVarint(blob, value.asObject().size());
        for (const Object::Member& member : value.asObject()) {
            putText(blob, member.key());
            putValue(blob, member.value, room - 1);
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

class Reader {
public:
    explicit Reader(std::string_view blob) : left_(blob) {}

    // These throw Unreadable. `room` is as above.
    Value value(unsigned room);
    unsigned char byte() { return static_cast<unsigned char>(bytes(1).front()); }
    [[nodiscard]] bool isAtEnd() const { return left_.empty(); }

private:
    Value container(Mark mark, unsigned room);
    std::uint64_t varint() {
        std::uint64_t number = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            const unsigned char next = byte();
            number |= std::uint64_t{next & 0x7FU} << shift;
            if (next < 0x80 && (shift < 63 || next <= 1)) {
                return number;
            }
        }
        throw Unreadable();
    }
    template <class Bits>
    Bits fixed() {
        Bits bits = 0;
        for (std::size_t index = 0; index < sizeof bits; ++index) {
            bits |= Bits{byte()} << (8U * index);
        }
        return bits;
    }
    std::string_view bytes(std::uint64_t count) {
        if (count > left_.size()) {
            throw Unreadable();
        }
        const std::string_view taken = left_.substr(0, static_cast<std::size_t>(count));
        left_.remove_prefix(taken.size());
        return taken;
    }
    std::string_view text() { return bytes(varint()); }

    std::string_view left_;
};

Value Reader::value(unsigned room) {
    switch (const Mark mark{byte()}) {
    case Mark::no:
    case Mark::yes:
        return mark == Mark::yes;
    case Mark::natural:
        return varint();
    case Mark::negative:
        if (const std::uint64_t complement = varint(); complement <= INT64_MAX) {
            return static_cast<std::int64_t>(~complement);
        }
        break;
    case Mark::float32:
        return std::bit_cast<float>(fixed<std::uint32_t>());
    case Mark::float64:
        return std::bit_cast<double>(fixed<std::uint64_t>());
    case Mark::date:
        return std::bit_cast<Date>(fixed<std::uint64_t>());
    case Mark::string:
        return text();
    case Mark::bytes:
        return Value(std::as_bytes(std::span(text())));
    case Mark::array:
    case Mark::object:
        if (room > 0) {
            return container(mark, room - 1);
        }
        break;
    }
    throw Unreadable();
}

// Reserves nothing: a count is believed only as far as there are bytes behind it.
Value Reader::container(Mark mark, unsigned room) {
    Array array;
    Object object;
    for (std::uint64_t count = 0, all = varint(); count < all; ++count) {
        if (mark == Mark::array) {
            array.append(value(room));
            continue;
        }
        const std::string_view key = text();
        object.set(key, value(room));
        if (object.size() == count) {
            throw Unreadable(); // one key twice
        }
    }
    return mark == Mark::array ? Value(std::move(array)) : Value(std::move(object));
}

} // namespace

std::string encodeValue(const Value& value) {
    std::string blob(1, blobVersion);
    putValue(blob, value, maximumBlobDepth);
    if (blob.size() > maximumBlobBytes) {
        throw std::invalid_argument("a stored value cannot take more than " +
                                    std::to_string(maximumBlobBytes) + " bytes");
    }
    return blob;
}

std::optional<Value> decodeValue(std::string_view blob) {
    try {
        Reader in(blob);
        if (in.byte() == blobVersion) {
            std::optional<Value> value = in.value(maximumBlobDepth);
            return in.isAtEnd() ? std::move(value) : std::nullopt;
        }
    } catch (const Unreadable&) {
        // Not of `encodeValue`'s making.
    }
    return std::nullopt;
}

} // namespace morvellacinto::native
