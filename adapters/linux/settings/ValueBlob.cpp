#include "ValueBlob.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

namespace morvellacinto::native {

namespace {

constexpr unsigned char blobVersion = 1;
constexpr std::size_t longestVarint = 10;

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

class Writer {
public:
    void byte(unsigned char byte) {
        makeRoom(1);
        put(byte);
    }

    void mark(Mark mark) { byte(static_cast<unsigned char>(mark)); }

    void varint(std::uint64_t number) {
        makeRoom(longestVarint);
        putVarint(number);
    }

    template <class Bits>
    void fixed(Bits bits) {
        makeRoom(sizeof bits);
        for (std::size_t index = 0; index < sizeof bits; ++index) {
            put(static_cast<unsigned char>(bits >> (8U * index)));
        }
    }

    void text(std::string_view text) {
        makeRoom(longestVarint + text.size());
        putText(text);
    }

    void markedText(Mark mark, std::string_view text) {
        makeRoom(1 + longestVarint + text.size());
        put(static_cast<unsigned char>(mark));
        putText(text);
    }

    [[nodiscard]] std::string take() {
        blob_.resize(used_);
        return std::move(blob_);
    }

private:
    void makeRoom(std::size_t bytes) {
        if (bytes > blob_.size() - used_) {
            grow(bytes);
        }
    }

    void grow(std::size_t bytes) {
        if (bytes > maximumBlobBytes || used_ > maximumBlobBytes - bytes) {
            throw std::invalid_argument("a stored value cannot take more than " +
                                        std::to_string(maximumBlobBytes) + " bytes");
        }
        blob_.resize(std::max(used_ + bytes, std::min(blob_.size() * 2, maximumBlobBytes)));
    }

    void put(unsigned char byte) { blob_[used_++] = static_cast<char>(byte); }

    void putVarint(std::uint64_t number) {
        for (; number >= 0x80; number >>= 7U) {
            put(static_cast<unsigned char>(number | 0x80U));
        }
        put(static_cast<unsigned char>(number));
    }

    void putText(std::string_view text) {
        putVarint(text.size());
        text.copy(blob_.data() + used_, text.size());
        used_ += text.size();
    }

    // Written up to `used_`; the rest is room.
    std::string blob_ = std::string(128, '\0');
    std::size_t used_ = 0;
};

// A container of which the first elements or members are written. Exactly one pointer is set.
struct PartlyWritten {
    const Value* element;
    const Object::Member* member;
    std::size_t left;
};

void writeInteger(Writer& out, const Value& integer) {
    if (integer.asDouble() >= 0) {
        out.mark(Mark::natural);
        out.varint(integer.asUInt64());
    } else {
        out.mark(Mark::negative);
        out.varint(~static_cast<std::uint64_t>(integer.asInt64()));
    }
}

// Of a container only the head; what it holds is then at the back of `open`.
void write(Writer& out, const Value& value, std::vector<PartlyWritten>& open) {
    if (value.isString()) { // nearly all there is, in what services answer
        out.markedText(Mark::string, value.asString());
        return;
    }
    switch (value.kind()) {
    case Value::Kind::boolean:
        out.mark(value.asBool() ? Mark::yes : Mark::no);
        break;
    case Value::Kind::integer:
        writeInteger(out, value);
        break;
    case Value::Kind::float32:
        out.mark(Mark::float32);
        out.fixed(std::bit_cast<std::uint32_t>(value.asFloat()));
        break;
    case Value::Kind::float64:
        out.mark(Mark::float64);
        out.fixed(std::bit_cast<std::uint64_t>(value.asDouble()));
        break;
    case Value::Kind::date:
        out.mark(Mark::date);
        out.fixed(std::bit_cast<std::uint64_t>(value.asDate().secondsSinceReference));
        break;
    case Value::Kind::string:
        break; // written above
    case Value::Kind::bytes: {
        const std::span<const std::byte> bytes = value.asBytes();
        out.markedText(Mark::bytes, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
        break;
    }
    case Value::Kind::array: {
        const Array& array = value.asArray();
        out.mark(Mark::array);
        out.varint(array.size());
        open.push_back({array.begin(), nullptr, array.size()});
        break;
    }
    case Value::Kind::object: {
        const Object& object = value.asObject();
        out.mark(Mark::object);
        out.varint(object.size());
        open.push_back({nullptr, object.begin(), object.size()});
        break;
    }
    case Value::Kind::null:
    case Value::Kind::instance:
        throw std::invalid_argument(std::string(nameOf(value.kind())) +
                                    " cannot be stored, alone or inside another value");
    }
}

class Reader {
public:
    explicit Reader(std::string_view blob) : left_(blob) {}

    // Each gives nothing when the blob ends too early.

    [[nodiscard]] std::optional<unsigned char> byte() {
        if (left_.empty()) {
            return std::nullopt;
        }
        const auto first = static_cast<unsigned char>(left_.front());
        left_.remove_prefix(1);
        return first;
    }

    [[nodiscard]] std::optional<std::uint64_t> varint() {
        std::uint64_t number = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            const std::optional<unsigned char> next = byte();
            if (!next || (shift == 63 && *next > 1)) {
                return std::nullopt;
            }
            number |= std::uint64_t{*next & 0x7FU} << shift;
            if (*next < 0x80) {
                return number;
            }
        }
        return std::nullopt;
    }

    template <class Bits>
    [[nodiscard]] std::optional<Bits> fixed() {
        if (left_.size() < sizeof(Bits)) {
            return std::nullopt;
        }
        Bits bits = 0;
        for (std::size_t index = 0; index < sizeof bits; ++index) {
            bits |= Bits{static_cast<unsigned char>(left_[index])} << (8U * index);
        }
        left_.remove_prefix(sizeof bits);
        return bits;
    }

    [[nodiscard]] std::optional<std::string_view> text() {
        const std::optional<std::uint64_t> length = varint();
        if (!length || *length > left_.size()) {
            return std::nullopt;
        }
        const std::string_view text = left_.substr(0, static_cast<std::size_t>(*length));
        left_.remove_prefix(text.size());
        return text;
    }

    [[nodiscard]] std::size_t left() const { return left_.size(); }

private:
    std::string_view left_;
};

template <class To, class From>
Value valueOf(std::optional<From> bits) {
    return bits ? Value(std::bit_cast<To>(*bits)) : Value();
}

// Null when the blob is at fault.
Value readScalar(Reader& in, Mark mark) {
    switch (mark) {
    case Mark::no:
    case Mark::yes:
        return mark == Mark::yes;
    case Mark::natural:
        return valueOf<std::uint64_t>(in.varint());
    case Mark::negative: {
        const std::optional<std::uint64_t> complement = in.varint();
        return complement && *complement <= INT64_MAX
                   ? Value(static_cast<std::int64_t>(~*complement))
                   : Value();
    }
    case Mark::float32:
        return valueOf<float>(in.fixed<std::uint32_t>());
    case Mark::float64:
        return valueOf<double>(in.fixed<std::uint64_t>());
    case Mark::date:
        return valueOf<Date>(in.fixed<std::uint64_t>());
    case Mark::string:
    case Mark::bytes: {
        const std::optional<std::string_view> text = in.text();
        if (!text) {
            return nullptr;
        }
        return mark == Mark::string ? Value(*text) : Value(std::as_bytes(std::span(*text)));
    }
    case Mark::array:
    case Mark::object:
        break;
    }
    return nullptr;
}

// A container that still waits for elements, or for members of which `key` is the next.
struct PartlyRead {
    Value container;
    std::string_view key;
    std::uint64_t missing;
};

Value emptyContainer(Mark mark, std::size_t room) {
    if (mark == Mark::array) {
        Array array;
        array.reserve(room);
        return array;
    }
    Object object;
    object.reserve(room);
    return object;
}

// False when an object holds the key already.
bool add(PartlyRead& parent, Value child) {
    --parent.missing;
    if (parent.container.isArray()) {
        parent.container.asArray().append(std::move(child));
        return true;
    }
    Object& object = parent.container.asObject();
    const std::size_t before = object.size();
    object.set(parent.key, std::move(child));
    return object.size() > before;
}

} // namespace

std::string encodeValue(const Value& value) {
    Writer out;
    out.byte(blobVersion);
    std::vector<PartlyWritten> open;
    write(out, value, open);
    while (!open.empty()) {
        PartlyWritten& current = open.back();
        if (current.left == 0) {
            open.pop_back();
            continue;
        }
        --current.left;
        if (current.element != nullptr) {
            write(out, *current.element++, open);
        } else {
            const Object::Member& member = *current.member++;
            out.text(member.key());
            write(out, member.value, open);
        }
    }
    return out.take();
}

std::optional<Value> decodeValue(std::string_view blob) {
    Reader in(blob);
    if (in.byte() != blobVersion) {
        return std::nullopt;
    }
    std::vector<PartlyRead> open;
    // What open containers still wait for. Each element or member takes a byte at least, so that
    // no count makes us reserve more than the blob has bytes for.
    std::uint64_t owed = 0;
    while (true) {
        const Mark mark{in.byte().value_or(0)};
        Value finished;
        if (mark == Mark::array || mark == Mark::object) {
            const std::optional<std::uint64_t> count = in.varint();
            // Of what is owed, as many as containers are open have begun.
            if (!count || *count > in.left() || (owed += *count) > in.left() + open.size()) {
                return std::nullopt;
            }
            finished = emptyContainer(mark, static_cast<std::size_t>(*count));
            if (*count > 0) {
                open.push_back({std::exchange(finished, Value()), {}, *count});
            }
        } else if (finished = readScalar(in, mark); finished.isNull()) {
            return std::nullopt;
        }
        while (!finished.isNull()) {
            if (open.empty()) {
                return in.left() == 0 ? std::optional<Value>(std::move(finished)) : std::nullopt;
            }
            if (!add(open.back(), std::exchange(finished, Value()))) {
                return std::nullopt;
            }
            --owed;
            if (open.back().missing == 0) {
                finished = std::move(open.back().container);
                open.pop_back();
            }
        }
        if (!open.back().container.isArray()) {
            const std::optional<std::string_view> key = in.text();
            if (!key) {
                return std::nullopt;
            }
            open.back().key = *key;
        }
    }
}

} // namespace morvellacinto::native
