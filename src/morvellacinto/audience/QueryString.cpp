// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/QueryString.h"

#include "morvellacinto/foundation/Representation.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <utility>

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

constexpr std::size_t longestEncoding = 3;

// Needs room for an Encoding behind the last one. Eight bytes are read before the first of them is
// written, since a store of characters might change what is read behind it.
char* encode(std::string_view value, char* out) {
    const auto put = [&out](unsigned char byte) {
        const Encoding& encoding = encodings[byte];
        std::memcpy(out, &encoding, sizeof encoding);
        out += encoding.length;
    };
    std::uint64_t eight = 0;
    while (value.size() >= sizeof eight) {
        std::memcpy(&eight, value.data(), sizeof eight);
        value.remove_prefix(sizeof eight);
        if constexpr (std::endian::native == std::endian::big) {
            eight = __builtin_bswap64(eight);
        }
        for (int shift = 0; shift < 64; shift += 8) {
            put(static_cast<unsigned char>(eight >> shift));
        }
    }
    for (const char byte : value) {
        put(static_cast<unsigned char>(byte));
    }
    return out;
}

// The pairs, written in pieces and put together in a string that never moves: its room is for the
// longest that the whole can become. Each pair begins with "&", and the first one's is left out.
class Output {
public:
    explicit Output(std::size_t longest) { text_.reserve(longest); }

    /// For the pairs that follow.
    void setKey(std::string_view key) {
        key_ = key;
        introductionLength_ = key.size() + 2;
        if (introductionLength_ <= introduction_.size()) {
            introduction_[0] = '&';
            *std::copy(key.begin(), key.end(), introduction_.begin() + 1) = '=';
        }
    }
    void append(std::string_view value) {
        const bool isShort = introductionLength_ <= introduction_.size();
        if (!isShort || introduction_.size() + longestEncoding * value.size() > room()) {
            appendInPieces(value);
            return;
        }
        std::memcpy(next_, introduction_.data(), introduction_.size());
        next_ = encode(value, next_ + introductionLength_);
    }
    std::string take() {
        flush();
        return std::move(text_);
    }

private:
    // The surplus of an Encoding is overwritten by what follows.
    [[nodiscard]] std::size_t room() const {
        return static_cast<std::size_t>(piece_.data() + piece_.size() - next_) - sizeof(Encoding);
    }
    void flush() {
        if (next_ > begin_) {
            text_.append(std::string_view(begin_, next_));
            begin_ = next_ = piece_.data();
        }
    }
    void appendInPieces(std::string_view value) {
        *next_++ = '&';
        flush();
        text_.append(key_);
        text_ += '=';
        while (!value.empty()) {
            const std::string_view part = value.substr(0, room() / longestEncoding);
            next_ = encode(part, next_);
            value.remove_prefix(part.size());
            flush();
        }
    }

    std::string text_;
    std::string_view key_;
    std::size_t introductionLength_ = 0;
    std::array<char, 16> introduction_;
    std::array<char, 3072> piece_;
    char* next_ = piece_.data();
    const char* begin_ = piece_.data() + 1;
};

[[noreturn]] void refuse(std::string_view key, const std::string& found) {
    throw std::invalid_argument("a query string needs arrays of strings; the member \"" +
                                std::string(key) + "\" holds " + found);
}

// Calls visit(key, values) for each member, in order.
template <class Visit>
void forEachMember(const Object& tags, Visit visit) {
    for (const Object::Member& member : tags) {
        const Array* values = member.value.ifArray();
        if (values == nullptr) {
            refuse(member.key(), std::string(nameOf(member.value.kind())));
        }
        visit(member.key(), *values);
    }
}

} // namespace

std::string queryString(const Object& tags) {
    std::size_t longest = 0;
    forEachMember(tags, [&longest](std::string_view key, const Array& values) {
        for (const Value& value : values) {
            if (!value.isString()) {
                refuse(key, "an array with " + std::string(nameOf(value.kind())));
            }
            longest += 2 + key.size() + longestEncoding * ValueAccess::string(value).size();
        }
    });
    Output query(longest);
    forEachMember(tags, [&query](std::string_view key, const Array& values) {
        query.setKey(key);
        for (const Value& value : values) {
            query.append(ValueAccess::string(value));
        }
    });
    return query.take();
}

} // namespace morvellacinto
