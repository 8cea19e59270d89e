// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/foundation/Representation.h"
#include "morvellacinto/foundation/Utf8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

namespace morvellacinto {

JsonWriteError::~JsonWriteError() = default;
JsonTextError::~JsonTextError() = default;

namespace {

// What to write for a byte inside a string: 0 as it is, 'u' as a four-digit escape, 'x' after a
// look at the whole UTF-8 sequence, otherwise a backslash and this letter.
constexpr auto stringActions = [] {
    std::array<char, 256> actions{};
    for (std::size_t byte = 0; byte < 0x20; ++byte) {
        actions[byte] = 'u';
    }
    for (std::size_t byte = 0x80; byte < 0x100; ++byte) {
        actions[byte] = 'x';
    }
    actions['"'] = '"';
    actions['\\'] = '\\';
    actions['\b'] = 'b';
    actions['\f'] = 'f';
    actions['\n'] = 'n';
    actions['\r'] = 'r';
    actions['\t'] = 't';
    return actions;
}();

// True when none of the eight bytes is a control character, a quotation mark, a backslash or
// outside ASCII.
bool isPlain(std::uint64_t bytes) {
    constexpr std::uint64_t each = 0x0101010101010101U;
    constexpr std::uint64_t high = 0x80 * each;
    const auto hasZero = [](std::uint64_t word) { return (word - each) & ~word; };
    const std::uint64_t found = bytes | (bytes - 0x20 * each) | hasZero(bytes ^ ('"' * each)) |
                                hasZero(bytes ^ ('\\' * each));
    return (found & high) == 0;
}

// Copies what stands at the start of `text`, up to eight bytes, when none of them needs a second
// look; tells how many. May write eight bytes whatever it tells.
std::size_t copyPlain(std::string_view text, char* out) {
    std::uint64_t bytes = 0;
    std::size_t length = sizeof bytes;
    if (text.size() >= length) {
        std::memcpy(&bytes, text.data(), sizeof bytes);
    } else if (text.size() >= 4) {
        // Two halves that overlap.
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        length = text.size();
        std::memcpy(&first, text.data(), sizeof first);
        std::memcpy(&last, text.data() + length - sizeof last, sizeof last);
        bytes = static_cast<std::uint64_t>(last) << 32 | first;
        if (!isPlain(bytes)) {
            return 0;
        }
        std::memcpy(out, &first, sizeof first);
        std::memcpy(out + length - sizeof last, &last, sizeof last);
        return length;
    } else {
        return 0;
    }
    if (!isPlain(bytes)) {
        return 0;
    }
    std::memcpy(out, &bytes, sizeof bytes);
    return length;
}

// Text that grows at its end, written through a pointer. It grows by pieces, each as long as all
// before it, that stay where they are: joining them at the end moves everything once.
class Text {
public:
    /// A place for `count` bytes, or for `further` when there is none yet; the end of what was
    /// written there is told to `wrote`.
    char* room(std::size_t count, std::size_t further = 0) {
        if (static_cast<std::size_t>(end_ - next_) < count) {
            grow(std::max(count, further));
        }
        return next_;
    }
    void wrote(char* end) { next_ = end; }

    void append(std::string_view text) {
        next_ = std::copy(text.begin(), text.end(), room(text.size()));
    }
    void append(char character) {
        room(1);
        *next_++ = character;
    }
    std::string take() const {
        std::string text;
        text.reserve(fullLength_ + static_cast<std::size_t>(next_ - begin_));
        for (const Piece& piece : full_) {
            text.append(piece.begin, piece.end);
        }
        text.append(begin_, next_);
        return text;
    }

private:
    struct Piece {
        const char* begin;
        const char* end;
    };
    static constexpr std::size_t firstPiece = 2048;
    static constexpr std::size_t smallestFurther = 65536;

    [[gnu::noinline]] void grow(std::size_t count) {
        full_.push_back({begin_, next_});
        fullLength_ += static_cast<std::size_t>(next_ - begin_);
        const std::size_t size = std::max({count, fullLength_, smallestFurther});
        further_.push_back(std::make_unique_for_overwrite<char[]>(size));
        begin_ = next_ = further_.back().get();
        end_ = begin_ + size;
    }

    std::array<char, firstPiece> first_;
    std::vector<std::unique_ptr<char[]>> further_;
    std::vector<Piece> full_;
    std::size_t fullLength_ = 0;
    char* begin_ = first_.data(); // of the piece that is being written
    char* next_ = begin_;
    char* end_ = begin_ + first_.size();
};

class Writer {
public:
    std::string write(const Value& top) {
        constexpr std::size_t usualDepth = 8;
        frames_.reserve(usualDepth);
        writeOne(top);
        while (!frames_.empty()) {
            Frame& frame = frames_.back();
            if (frame.next == frame.count) {
                text_.append(frame.members != nullptr ? '}' : ']');
                frames_.pop_back();
                continue;
            }
            if (frame.next > 0) {
                text_.append(',');
            }
            const std::size_t position = frame.next++;
            if (frame.members == nullptr) {
                writeOne(frame.elements[position]);
                continue;
            }
            const Object::Member& member = frame.members[position];
            writeString(ValueAccess::key(member));
            text_.append(':');
            writeOne(member.value);
        }
        return text_.take();
    }

private:
    // A container that holds something and is not written to its end.
    struct Frame {
        const Object::Member* members; // of an object
        const Value* elements;         // of an array
        std::size_t count;
        std::size_t next;
    };

    void writeOne(const Value& value) {
        switch (value.kind()) {
        case Value::Kind::null:
            return text_.append("null");
        case Value::Kind::boolean:
            return text_.append(value.asBool() ? "true" : "false");
        case Value::Kind::integer:
            return ValueAccess::isUnsignedInteger(value)
                       ? writeNumber(ValueAccess::number<std::uint64_t>(value))
                       : writeNumber(ValueAccess::number<std::int64_t>(value));
        case Value::Kind::float32:
            return writeFloating(ValueAccess::number<float>(value));
        case Value::Kind::float64:
            return writeFloating(ValueAccess::number<double>(value));
        case Value::Kind::string:
            return writeString(ValueAccess::string(value));
        case Value::Kind::array:
            checkDepth();
            if (const auto* elements = ValueAccess::elements(value);
                elements != nullptr && !elements->empty()) {
                text_.append('[');
                frames_.push_back({nullptr, elements->data(), elements->size(), 0});
                return;
            }
            return text_.append("[]");
        case Value::Kind::object:
            checkDepth();
            if (const auto* members = ValueAccess::members(value);
                members != nullptr && !members->empty()) {
                text_.append('{');
                frames_.push_back({members->data(), nullptr, members->size(), 0});
                return;
            }
            return text_.append("{}");
        case Value::Kind::date:
        case Value::Kind::bytes:
        case Value::Kind::instance:
            refuse(nameOf(value.kind()));
        }
    }

    // What the reader would refuse.
    void checkDepth() const {
        if (frames_.size() == maximumJsonDepth) {
            refuse("more than " + std::to_string(maximumJsonDepth) + " levels");
        }
    }

    template <class Number, class... Format>
    void writeNumber(Number number, Format... format) {
        constexpr std::size_t longest = 32;
        char* start = text_.room(longest);
        text_.wrote(std::to_chars(start, start + longest, number, format...).ptr);
    }

    template <class Floating>
    void writeFloating(Floating number) {
        if (!std::isfinite(number)) {
            refuse(std::isnan(number) ? "not-a-number" : "infinity");
        }
        // Where the shortest text may have an exponent that nobody expects.
        const Floating magnitude = std::abs(number);
        if (magnitude >= Floating(1e5) && magnitude < Floating(1e17)) {
            writeNumber(number, std::chars_format::fixed);
        } else {
            writeNumber(number);
        }
    }

    void writeString(std::string_view string) {
        constexpr std::size_t step = sizeof(std::uint64_t);
        // Room for all that is left when none of it needs an escape, for one escape, and for
        // copying a whole step at the end.
        constexpr std::size_t spare = 2 + 6 + step;
        char* out = text_.room(string.size() + spare);
        *out++ = '"';
        bool wasStep = false;
        while (!string.empty()) {
            if (const std::size_t plain = copyPlain(string, out)) {
                out += plain;
                string.remove_prefix(plain);
                wasStep = plain == step;
                continue;
            }
            // The rest with some of the step before it, which stands there already.
            if (wasStep && string.size() < step) {
                const std::string_view last(string.data() + string.size() - step, step);
                if (copyPlain(last, out + string.size() - step) == step) {
                    out += string.size();
                    break;
                }
            }
            wasStep = false;
            const char action = stringActions[static_cast<unsigned char>(string.front())];
            if (action == 0) {
                *out++ = string.front();
                string.remove_prefix(1);
            } else if (action == 'x') {
                const std::size_t length = utf8SequenceLength(string);
                if (length == 0) {
                    refuse<JsonTextError>("a string that is not valid UTF-8");
                }
                out = std::copy_n(string.data(), length, out);
                string.remove_prefix(length);
            } else {
                out = writeEscape(out, string.front(), action);
                string.remove_prefix(1);
                text_.wrote(out);
                // Twice, or each of many escapes would take a piece of its own.
                out = text_.room(string.size() + spare, 2 * (string.size() + spare));
            }
        }
        *out++ = '"';
        text_.wrote(out);
    }

    static char* writeEscape(char* out, char character, char action) {
        *out++ = '\\';
        *out++ = action;
        if (action == 'u') {
            constexpr std::string_view hexadecimal = "0123456789abcdef";
            *out++ = '0';
            *out++ = '0';
            *out++ = hexadecimal[static_cast<unsigned char>(character) >> 4];
            *out++ = hexadecimal[static_cast<unsigned char>(character) & 0xF];
        }
        return out;
    }

    template <class Error = JsonWriteError>
    [[noreturn]] void refuse(std::string_view what) const {
        std::string message = "JSON cannot hold " + std::string(what);
        const auto object = std::find_if(frames_.rbegin(), frames_.rend(), [](const Frame& frame) {
            return frame.members != nullptr;
        });
        if (object != frames_.rend()) {
            message += ", found at or below the member \"" +
                       std::string(object->members[object->next - 1].key()) + "\"";
        }
        throw Error(message);
    }

    Text text_;
    std::vector<Frame> frames_;
};

} // namespace

std::string writeJson(const Value& value) {
    if (!value.isArray() && !value.isObject()) {
        throw JsonWriteError("JSON text needs an object or an array at the top, found " +
                             std::string(nameOf(value.kind())));
    }
    return writeJsonFragment(value);
}

std::string writeJsonFragment(const Value& value) { return Writer().write(value); }

} // namespace morvellacinto
