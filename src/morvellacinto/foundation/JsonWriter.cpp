#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/foundation/Representation.h"
#include "morvellacinto/foundation/Utf8.h"

#include <array>
#include <charconv>
#include <cmath>
#include <vector>

namespace morvellacinto {

JsonWriteError::~JsonWriteError() = default;

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

class Writer {
public:
    std::string write(const Value& top) {
        writeOne(top);
        while (!frames_.empty()) {
            Frame& frame = frames_.back();
            if (frame.next == frame.count) {
                text_ += frame.isObject ? '}' : ']';
                frames_.pop_back();
                continue;
            }
            if (frame.next > 0) {
                text_ += ',';
            }
            const std::size_t position = frame.next++;
            if (!frame.isObject) {
                writeOne(frame.elements[position]);
                continue;
            }
            const Object::Member& member = frame.members[position];
            key_ = member.key();
            writeString(key_);
            text_ += ':';
            writeOne(member.value);
        }
        return std::move(text_);
    }

private:
    struct Frame {
        bool isObject;
        const Object::Member* members; // of an object
        const Value* elements;         // of an array
        std::size_t count;
        std::size_t next;
    };

    void writeOne(const Value& value) {
        switch (value.kind()) {
        case Value::Kind::null:
            text_ += "null";
            break;
        case Value::Kind::boolean:
            text_ += value.asBool() ? "true" : "false";
            break;
        case Value::Kind::integer:
            if (ValueAccess::isUnsignedInteger(value)) {
                writeNumber(value.asUInt64());
            } else {
                writeNumber(value.asInt64());
            }
            break;
        case Value::Kind::float32:
            writeFloating(value.asFloat());
            break;
        case Value::Kind::float64:
            writeFloating(value.asDouble());
            break;
        case Value::Kind::string:
            writeString(value.asString());
            break;
        case Value::Kind::array: {
            const Array& array = value.asArray();
            text_ += '[';
            frames_.push_back({false, nullptr, array.begin(), array.size(), 0});
            break;
        }
        case Value::Kind::object: {
            const Object& object = value.asObject();
            text_ += '{';
            frames_.push_back({true, object.begin(), nullptr, object.size(), 0});
            break;
        }
        case Value::Kind::date:
        case Value::Kind::bytes:
        case Value::Kind::instance:
            refuse(nameOf(value.kind()));
        }
    }

    template <class Number>
    void writeNumber(Number number) {
        std::array<char, 32> buffer;
        const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
        text_.append(buffer.data(), written.ptr);
    }

    template <class Floating>
    void writeFloating(Floating number) {
        if (!std::isfinite(number)) {
            refuse(std::isnan(number) ? "not-a-number" : "infinity");
        }
        writeNumber(number);
    }

    void writeString(std::string_view string) {
        text_ += '"';
        std::size_t pending = 0; // from here on nothing has been copied
        std::size_t next = 0;
        while (next < string.size()) {
            const char action = stringActions[static_cast<unsigned char>(string[next])];
            if (action == 0) {
                ++next;
                continue;
            }
            if (action == 'x') {
                const std::size_t length = utf8SequenceLength(string.substr(next));
                if (length == 0) {
                    refuse("a string that is not valid UTF-8");
                }
                next += length;
                continue;
            }
            text_.append(string, pending, next - pending);
            writeEscape(string[next], action);
            pending = ++next;
        }
        text_.append(string, pending, next - pending);
        text_ += '"';
    }

    void writeEscape(char character, char action) {
        text_ += '\\';
        text_ += action;
        if (action == 'u') {
            constexpr std::string_view hexadecimal = "0123456789abcdef";
            text_ += "00";
            text_ += hexadecimal[static_cast<unsigned char>(character) >> 4];
            text_ += hexadecimal[static_cast<unsigned char>(character) & 0xF];
        }
    }

    [[noreturn]] void refuse(std::string_view what) const {
        std::string message = "JSON cannot hold " + std::string(what);
        if (!frames_.empty() && key_.data() != nullptr) {
            message += ", found at or below the member \"" + std::string(key_) + "\"";
        }
        throw JsonWriteError(message);
    }

    std::string text_;
    std::vector<Frame> frames_;
    std::string_view key_; // the member last begun
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
