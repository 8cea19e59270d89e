// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/DecimalText.h"
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/foundation/Representation.h"
#include "morvellacinto/foundation/Utf8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace morvellacinto {
namespace {

constexpr bool isDigit(char character) { return character >= '0' && character <= '9'; }

void appendUtf8(std::string& text, std::uint32_t codePoint) {
    const auto append = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        append(codePoint);
    } else if (codePoint < 0x800) {
        append(0xC0 | codePoint >> 6);
        append(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        append(0xE0 | codePoint >> 12);
        append(0x80 | (codePoint >> 6 & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    } else {
        append(0xF0 | codePoint >> 18);
        append(0x80 | (codePoint >> 12 & 0x3F));
        append(0x80 | (codePoint >> 6 & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    }
}

// Characters that a string can hold as they are and that need no look at their neighbours.
constexpr auto plainCharacters = [] {
    std::array<bool, 256> plain{};
    for (std::size_t character = 0x20; character < 0x80; ++character) {
        plain[character] = character != '"' && character != '\\';
    }
    return plain;
}();

class Reader {
public:
    explicit Reader(std::string_view text) noexcept
        : begin_(text.data()), next_(begin_), end_(begin_ + text.size()) {
        if (text.starts_with("\xEF\xBB\xBF")) {
            next_ += 3;
        }
    }

    std::optional<Value> read() {
        skipSpace();
        if (next_ == end_ || (*next_ != '{' && *next_ != '[')) {
            static_cast<void>(fail("neither an object nor an array"));
            return std::nullopt;
        }
        // Growing moves all values and touches new memory; what is not used stays untouched.
        constexpr std::size_t usualBytesAValue = 16;
        constexpr std::size_t mostReserved = 1U << 17U;
        values_.reserve(
            std::min(static_cast<std::size_t>(end_ - next_) / usualBytesAValue + 1, mostReserved));
        while (readValueOrOpen()) {
            while (true) {
                if (depth_ == 0) {
                    skipSpace();
                    static_cast<void>(fail("something behind the end"));
                    return next_ == end_ ? std::optional(std::move(values_.front())) : std::nullopt;
                }
                skipSpace();
                if (next_ == end_) {
                    return std::nullopt;
                }
                const char character = *next_++;
                if (character == ',') {
                    if (top().isObject && !readKey()) {
                        return std::nullopt;
                    }
                    break;
                }
                if (character != (top().isObject ? '}' : ']')) {
                    --next_;
                    return std::nullopt;
                }
                close();
            }
        }
        return std::nullopt;
    }

    /// Of what `read` gave nothing for.
    [[nodiscard]] JsonProblem problem() const {
        const std::string_view before(begin_, next_);
        const auto lines = std::count(before.begin(), before.end(), '\n');
        const std::size_t lineStart = before.rfind('\n') + 1; // 0 without one
        return {static_cast<std::size_t>(lines) + 1, before.size() - lineStart + 1,
                next_ == end_ ? "the text ends too early" : reason_};
    }

private:
    // A container whose end has not been read: its members are the values from `first` on, keys
    // and values in turn for an object.
    struct Frame {
        std::size_t first;
        bool isObject;
    };

    bool fail(const char* reason) {
        reason_ = reason;
        return false;
    }

    Frame& top() { return frames_[depth_ - 1]; }

    void skipSpace() {
        while (next_ != end_ &&
               (*next_ == ' ' || *next_ == '\n' || *next_ == '\r' || *next_ == '\t')) {
            ++next_;
        }
    }

    // Reads up to the end of one complete value, going into containers that are not empty.
    bool readValueOrOpen() {
        while (true) {
            skipSpace();
            if (next_ == end_) {
                return false;
            }
            switch (*next_) {
            case '{':
            case '[': {
                if (depth_ == maximumJsonDepth) {
                    return fail("nested too deep");
                }
                const bool isObject = *next_++ == '{';
                frames_[depth_++] = {values_.size(), isObject};
                skipSpace();
                if (next_ != end_ && *next_ == (isObject ? '}' : ']')) {
                    ++next_;
                    close();
                    return true;
                }
                if (isObject && !readKey()) {
                    return false;
                }
                break;
            }
            case '"':
                return readString();
            case 't':
                return readWord("true", true);
            case 'f':
                return readWord("false", false);
            case 'n':
                return readWord("null", nullptr);
            default:
                return readNumber();
            }
        }
    }

    void close() {
        const Frame frame = frames_[--depth_];
        const std::span<Value> members = std::span(values_).subspan(frame.first);
        Value made =
            frame.isObject ? ValueAccess::makeObject(members) : ValueAccess::makeArray(members);
        values_.resize(frame.first);
        values_.push_back(std::move(made));
    }

    bool readKey() {
        skipSpace();
        if (next_ == end_ || *next_ != '"') {
            return fail("no name of a member, which stands in quotation marks");
        }
        if (!readString()) {
            return false;
        }
        skipSpace();
        if (next_ == end_ || *next_ != ':') {
            return fail("no colon behind the name of a member");
        }
        ++next_;
        return true;
    }

    bool readWord(std::string_view word, Value meaning) {
        if (!std::string_view(next_, end_).starts_with(word)) {
            return fail("no value");
        }
        next_ += word.size();
        values_.push_back(std::move(meaning));
        return true;
    }

    bool readString() {
        const char* start = ++next_;
        bool unescaped = false; // the text so far stands in scratch_
        while (true) {
            while (next_ != end_ && plainCharacters[static_cast<unsigned char>(*next_)]) {
                ++next_;
            }
            if (next_ == end_) {
                return false;
            }
            if (*next_ == '"') {
                std::string_view text(start, next_);
                if (unescaped) {
                    scratch_ += text;
                    text = scratch_;
                }
                values_.emplace_back(text);
                ++next_;
                return true;
            }
            if (*next_ == '\\') {
                if (!unescaped) {
                    scratch_.clear();
                    unescaped = true;
                }
                scratch_.append(start, next_);
                if (!readEscape()) {
                    return false;
                }
                start = next_;
                continue;
            }
            const std::size_t length =
                static_cast<unsigned char>(*next_) < 0x20 ? 0 : utf8SequenceLength({next_, end_});
            if (length == 0) {
                return fail("a control character or invalid UTF-8 in a string");
            }
            next_ += length;
        }
    }

    bool readEscape() {
        ++next_;
        if (next_ == end_) {
            return false;
        }
        switch (*next_++) {
        case '"':
            scratch_ += '"';
            return true;
        case '\\':
            scratch_ += '\\';
            return true;
        case '/':
            scratch_ += '/';
            return true;
        case 'b':
            scratch_ += '\b';
            return true;
        case 'f':
            scratch_ += '\f';
            return true;
        case 'n':
            scratch_ += '\n';
            return true;
        case 'r':
            scratch_ += '\r';
            return true;
        case 't':
            scratch_ += '\t';
            return true;
        case 'u':
            return readCodePoint();
        default:
            return fail("an unknown escape in a string");
        }
    }

    bool readCodePoint() {
        constexpr const char* noCharacter = "an escape that stands for no character in a string";
        std::optional<std::uint32_t> unit = readFourDigits();
        if (!unit || (*unit >= 0xDC00 && *unit <= 0xDFFF)) {
            return fail(noCharacter);
        }
        if (*unit >= 0xD800 && *unit <= 0xDBFF) {
            if (!std::string_view(next_, end_).starts_with("\\u")) {
                return fail(noCharacter);
            }
            next_ += 2;
            const std::optional<std::uint32_t> low = readFourDigits();
            if (!low || *low < 0xDC00 || *low > 0xDFFF) {
                return fail(noCharacter);
            }
            unit = 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00);
        }
        appendUtf8(scratch_, *unit);
        return true;
    }

    std::optional<std::uint32_t> readFourDigits() {
        if (end_ - next_ < 4) {
            return std::nullopt;
        }
        std::uint32_t unit = 0;
        const auto [stop, error] = std::from_chars(next_, next_ + 4, unit, 16);
        if (error != std::errc() || stop != next_ + 4) {
            return std::nullopt;
        }
        next_ += 4;
        return unit;
    }

    bool readNumber() {
        const char* const start = next_;
        const bool negative = *next_ == '-';
        if (negative) {
            ++next_;
        }
        const char* const digits = next_;
        skipDigits();
        if (next_ == digits || (*digits == '0' && next_ - digits > 1)) {
            return fail(negative || next_ != digits ? "no number" : "no value");
        }
        const bool isInteger = next_ == end_ || (*next_ != '.' && *next_ != 'e' && *next_ != 'E');
        if (isInteger && readInteger(start, negative)) {
            return true;
        }
        // What JSON forbids but from_chars reads: a point without a digit behind it.
        if (!isInteger && *next_ == '.' && (next_ + 1 == end_ || !isDigit(next_[1]))) {
            return fail("no digit behind a decimal point");
        }
        return readDouble(start);
    }

    // Stops before an exponent that is none, which nothing can follow.
    bool readDouble(const char* start) {
        double number = 0;
        const auto [stop, error] = std::from_chars(start, end_, number);
        next_ = stop;
        if (error == std::errc::result_out_of_range) {
            const std::optional<double> limit = doubleFromDecimal({start, stop});
            if (!limit) {
                return fail("a number that is too large");
            }
            number = *limit;
        }
        values_.emplace_back(number);
        return true;
    }

    // False when the integer needs a double: beyond 64 bits, or minus zero.
    bool readInteger(const char* start, bool negative) {
        if (negative) {
            std::int64_t number = 0;
            if (std::from_chars(start, next_, number).ec != std::errc() || number == 0) {
                return false;
            }
            values_.emplace_back(number);
            return true;
        }
        std::uint64_t number = 0;
        if (std::from_chars(start, next_, number).ec != std::errc()) {
            return false;
        }
        values_.emplace_back(number);
        return true;
    }

    bool skipDigits() {
        const char* const start = next_;
        while (next_ != end_ && isDigit(*next_)) {
            ++next_;
        }
        return next_ != start;
    }

    const char* begin_;
    const char* next_;
    const char* end_;
    const char* reason_ = "neither a comma nor the end of an object or array";
    std::vector<Value> values_;
    std::array<Frame, maximumJsonDepth> frames_;
    std::size_t depth_ = 0;
    std::string scratch_;
};

} // namespace

std::optional<Value> readJson(TextArgument text, JsonProblem* problem) {
    Reader reader(text);
    std::optional<Value> read = reader.read();
    if (!read && problem != nullptr) {
        *problem = reader.problem();
    }
    return read;
}

} // namespace morvellacinto
