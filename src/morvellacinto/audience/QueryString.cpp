#include "morvellacinto/audience/QueryString.h"

#include "morvellacinto/foundation/Representation.h"

#include <array>
#include <cstring>
#include <stdexcept>

namespace morvellacinto {
namespace {

// What a byte of a value becomes: itself, or a percent sign and two digits. Copied as a whole, the
// length with it, which is one store.
struct alignas(4) Encoding {
    char text[3];
    std::uint8_t length;
};

constexpr auto encodings = [] {
    constexpr std::string_view hexadecimal = "0123456789ABCDEF";
    constexpr std::string_view unchanged = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                           "0123456789-._~!$&'()*+,;=:[]";
    std::array<Encoding, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) {
        table[byte] = {{'%', hexadecimal[byte >> 4], hexadecimal[byte & 0xF]}, 3};
    }
    for (const char character : unchanged) {
        table[static_cast<unsigned char>(character)] = {{character, 0, 0}, 1};
    }
    return table;
}();

const Encoding& encodingOf(char byte) { return encodings[static_cast<unsigned char>(byte)]; }

std::size_t encodedLength(std::string_view value) {
    std::size_t length = 0;
    for (const char byte : value) {
        length += encodingOf(byte).length;
    }
    return length;
}

// Needs room for an Encoding behind the last one. The position is a local, which a store of
// characters cannot change: it stays in a register.
char* encode(std::string_view value, char* at) {
    for (const char byte : value) {
        const Encoding& encoding = encodingOf(byte);
        std::memcpy(at, &encoding, sizeof encoding);
        at += encoding.length;
    }
    return at;
}

[[noreturn]] void refuse(std::string_view key, const std::string& found) {
    throw std::invalid_argument("a query string needs arrays of strings; the member \"" +
                                std::string(key) + "\" holds " + found);
}

// Calls visit(key, value) for each pair, in order.
template <class Visit>
void forEachPair(const Object& tags, Visit visit) {
    for (const Object::Member& member : tags) {
        const Array* values = member.value.ifArray();
        if (values == nullptr) {
            refuse(member.key(), std::string(nameOf(member.value.kind())));
        }
        const std::string_view key = member.key();
        for (const Value& value : *values) {
            if (!value.isString()) {
                refuse(member.key(), "an array with " + std::string(nameOf(value.kind())));
            }
            visit(key, ValueAccess::string(value));
        }
    }
}

} // namespace

// Two walks, the first of which measures: one allocation for the result, whatever its size.
std::string queryString(const Object& tags) {
    std::size_t length = 0;
    forEachPair(tags, [&length](std::string_view key, std::string_view value) {
        length += 2 + key.size() + encodedLength(value);
    });
    if (length == 0) {
        return {};
    }
    // The surplus of each byte is overwritten by what follows.
    constexpr std::size_t surplus = sizeof(Encoding);
    std::string query(length + surplus, '\0');
    char* next = query.data();
    forEachPair(tags, [&next](std::string_view key, std::string_view value) {
        char* at = std::copy(key.begin(), key.end(), next);
        *at++ = '=';
        at = encode(value, at);
        *at++ = '&';
        next = at;
    });
    query.resize(length - 1);
    return query;
}

} // namespace morvellacinto
