// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Date.h"
#include "morvellacinto/foundation/Export.h"
#include "morvellacinto/foundation/Instance.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace morvellacinto {

class Array;
class Object;

/// Thrown when a `Value` is read as a kind that it does not hold; the message names both kinds.
class MORVELLACINTO_EXPORT ValueKindError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~ValueKindError() override;
};

/// One JSON value, stored setting or mapped property, in 16 bytes.
///
/// Value semantics with O(1) copies: strings over 14 bytes, byte strings, arrays and objects are
/// shared until one of the holders changes its own copy. Reading the same value from several
/// threads is safe, and so is changing different copies of it. "Nothing" is an empty
/// `std::optional<Value>`; null is a kind of its own. Arrays and objects that nest
/// cost no stack however deep; an `Instance` that holds values is destroyed by its destructor.
class MORVELLACINTO_EXPORT Value {
public:
    /// What JSON, settings and mapped properties tell apart.
    enum class Kind : std::uint8_t {
        null,
        boolean,
        integer, ///< the whole range of std::int64_t and std::uint64_t
        float32, ///< keeps its width: written as the shortest text that reads back to it
        float64,
        string, ///< bytes, by convention UTF-8; may hold zeros
        date,
        bytes,
        array,
        object,
        instance,
    };

    Value() noexcept : Value(Tag::null) {}
    Value(std::nullptr_t) noexcept : Value(Tag::null) {}
    template <std::same_as<bool> T>
    Value(T value) noexcept : Value(Tag::boolean) {
        put<std::uint64_t>(value ? 1 : 0);
    }
    template <std::signed_integral T>
    requires(!std::same_as<T, char> && !std::same_as<T, wchar_t> &&
             sizeof(T) <= sizeof(std::int64_t)) Value(T value)
    noexcept : Value(Tag::signedInteger) { put<std::int64_t>(value); }
    template <std::unsigned_integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char> && sizeof(T) <= sizeof(std::uint64_t))
        Value(T value)
    noexcept
        : Value(static_cast<std::uint64_t>(value) > INT64_MAX ? Tag::unsignedInteger
                                                              : Tag::signedInteger) {
        put<std::uint64_t>(value);
    }
    /// An enumeration is stored as the integer that it is.
    template <class T>
    requires std::is_enum_v<T> Value(T value)
    noexcept : Value(static_cast<std::underlying_type_t<T>>(value)) {}
    Value(float value) noexcept : Value(Tag::float32) { put<float>(value); }
    Value(double value) noexcept : Value(Tag::float64) { put<double>(value); }
    Value(Date value) noexcept : Value(Tag::date) { put<Date>(value); }
    Value(std::string_view text) : Value(Tag::shortString) {
        // All of a string's storage is set, so that short ones are compared as a whole.
        std::memset(storage_ + 1, 0, sizeof storage_ - 1);
        if (text.size() > maximumInlineLength) {
            putLong(text);
            return;
        }
        storage_[1] = static_cast<std::byte>(text.size());
        if (!text.empty()) {
            std::memcpy(storage_ + 2, text.data(), text.size());
        }
    }
    /// A null pointer gives null.
    Value(const char* text) : Value(text == nullptr ? Value() : Value(std::string_view(text))) {}
    Value(const std::string& text) : Value(std::string_view(text)) {}
    explicit Value(std::span<const std::byte> bytes);
    Value(Array array) noexcept;
    Value(Object object) noexcept;
    /// An empty reference gives null.
    Value(Ref<Instance> instance) noexcept;

    Value(const Value& other) noexcept {
        std::memcpy(storage_, other.storage_, sizeof storage_);
        if (isShared()) {
            retain();
        }
    }
    Value(Value&& other) noexcept {
        std::memcpy(storage_, other.storage_, sizeof storage_);
        other.storage_[0] = std::byte{0};
    }
    Value& operator=(const Value& other) noexcept {
        Value copy(other);
        swap(copy);
        return *this;
    }
    Value& operator=(Value&& other) noexcept {
        Value taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~Value() {
        if (isShared()) {
            release();
        }
    }
    void swap(Value& other) noexcept {
        std::byte kept[sizeof storage_];
        std::memcpy(kept, storage_, sizeof kept);
        std::memcpy(storage_, other.storage_, sizeof kept);
        std::memcpy(other.storage_, kept, sizeof kept);
    }

    /// What it holds: a number is an integer, float or double, and no boolean. @{
    [[nodiscard]] Kind kind() const noexcept { return kinds[static_cast<std::size_t>(tag())]; }
    [[nodiscard]] bool isNull() const noexcept { return tag() == Tag::null; }
    [[nodiscard]] bool isBool() const noexcept { return tag() == Tag::boolean; }
    [[nodiscard]] bool isNumber() const noexcept {
        return tag() >= Tag::signedInteger && tag() <= Tag::float64;
    }
    [[nodiscard]] bool isString() const noexcept {
        return tag() == Tag::shortString || tag() == Tag::longString;
    }
    [[nodiscard]] bool isArray() const noexcept { return tag() == Tag::array; }
    [[nodiscard]] bool isObject() const noexcept { return tag() == Tag::object; } ///@}

    /// Throws ValueKindError for another kind, `asUInt64` std::out_of_range as `asInt64` does. @{
    [[nodiscard]] bool asBool() const {
        if (!isBool()) {
            throwNot("a boolean");
        }
        return get<std::uint64_t>() != 0;
    }
    /// Throws ValueKindError, or std::out_of_range for an integer that the type cannot hold.
    [[nodiscard]] std::int64_t asInt64() const {
        if (tag() != Tag::signedInteger) {
            throwNotInt64();
        }
        return get<std::int64_t>();
    }
    [[nodiscard]] std::uint64_t asUInt64() const;
    /// Any number, converted to the nearest double; `asFloat` likewise to the nearest float.
    [[nodiscard]] double asDouble() const {
        return tag() == Tag::float64 ? get<double>() : toDouble();
    }
    [[nodiscard]] float asFloat() const;
    /// The view is valid until this value is changed or destroyed; a copy does not keep it.
    [[nodiscard]] std::string_view asString() const {
        if (tag() != Tag::shortString) {
            return longString();
        }
        return {reinterpret_cast<const char*>(storage_ + 2), static_cast<std::size_t>(storage_[1])};
    }
    [[nodiscard]] Date asDate() const;
    [[nodiscard]] std::span<const std::byte> asBytes() const;
    [[nodiscard]] const Array& asArray() const;
    [[nodiscard]] Array& asArray();
    [[nodiscard]] const Object& asObject() const;
    [[nodiscard]] Object& asObject();
    [[nodiscard]] Instance& asInstance() const {
        if (tag() != Tag::instance) {
            throwNot("an instance");
        }
        return *get<Instance*>();
    } ///@}

    /// The object or array that this value holds, or null for any other kind. @{
    [[nodiscard]] const Object* ifObject() const noexcept {
        return isObject() ? container<Object>() : nullptr;
    }
    [[nodiscard]] const Array* ifArray() const noexcept {
        return isArray() ? container<Array>() : nullptr;
    } ///@}

    /// Same kind and content, with two exceptions: numbers are equal when they have the same
    /// mathematical value whatever their kind (not-a-number equals nothing), and objects compare
    /// without regard to the order of their members. Instances are equal when they are the same.
    friend MORVELLACINTO_EXPORT bool operator==(const Value& left, const Value& right);

private:
    friend class Array;
    friend class Object;
    friend struct ValueAccess;

    enum class Tag : std::uint8_t {
        null,
        boolean,
        signedInteger,
        unsignedInteger, // only above INT64_MAX
        float32,
        float64,
        date,
        shortString,
        longString, // from here on the payload is a pointer to something counted
        bytes,
        array,
        object,
        instance,
    };

    /// By tag.
    static constexpr Kind kinds[] = {
        Kind::null,    Kind::boolean, Kind::integer,  Kind::integer, Kind::float32,
        Kind::float64, Kind::date,    Kind::string,   Kind::string,  Kind::bytes,
        Kind::array,   Kind::object,  Kind::instance,
    };
    static constexpr std::size_t maximumInlineLength = 14;
    static constexpr std::size_t payloadOffset = 8;

    explicit Value(Tag tag) noexcept { storage_[0] = static_cast<std::byte>(tag); }

    [[nodiscard]] Tag tag() const noexcept { return static_cast<Tag>(storage_[0]); }
    [[nodiscard]] bool isShared() const noexcept { return tag() >= Tag::longString; }
    template <class T>
    void put(T value) noexcept {
        std::memcpy(storage_ + payloadOffset, &value, sizeof value);
    }
    template <class T>
    [[nodiscard]] T get() const noexcept {
        T value;
        std::memcpy(&value, storage_ + payloadOffset, sizeof value);
        return value;
    }
    /// A template, so that the classes need not be complete here.
    template <class Container>
    [[nodiscard]] const Container* container() const noexcept {
        return std::launder(reinterpret_cast<const Container*>(storage_ + payloadOffset));
    }
    void retain() const noexcept;
    void release() noexcept;
    void putLong(std::string_view text);
    [[nodiscard]] std::string_view longString() const;
    [[nodiscard]] double toDouble() const;
    [[noreturn]] void throwNot(const char* wanted) const;
    [[noreturn]] void throwNotInt64() const;

    // Byte 0 is the tag. A short string keeps its length in byte 1 and its text behind it;
    // everything else keeps its payload in the last eight bytes.
    alignas(8) std::byte storage_[16];
};

static_assert(sizeof(Value) == 16);

/// The name of a kind as error messages use it, such as "an object".
[[nodiscard]] MORVELLACINTO_EXPORT std::string_view nameOf(Value::Kind kind) noexcept;

/// True when null, or an instance, stands at any depth of `value`: what persistent defaults refuse.
[[nodiscard]] MORVELLACINTO_EXPORT bool holdsUnstorable(const Value& value);

} // namespace morvellacinto

// A Value is hardly usable without them.
#include "morvellacinto/foundation/Array.h"  // IWYU pragma: export
#include "morvellacinto/foundation/Object.h" // IWYU pragma: export
