// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <array>
#include <atomic>
#include <bit>
#include <memory>
#include <vector>

namespace morvellacinto {

/// What the holders of a long string, byte string, array or object share. `owners` comes first, so
/// that holders are counted without regard to what is counted.
struct Counted {
    std::atomic<std::uint32_t> owners{1};

    void retain() noexcept { owners.fetch_add(1, std::memory_order_relaxed); }
    /// True when the caller was the last owner.
    bool release() noexcept {
        // A sole owner has nobody to race with.
        return isUnique() || owners.fetch_sub(1, std::memory_order_acq_rel) == 1;
    }
    [[nodiscard]] bool isUnique() const noexcept {
        return owners.load(std::memory_order_acquire) == 1;
    }
};

/// A run of bytes, allocated together with its header.
struct CountedBytes : Counted {
    std::size_t length;

    [[nodiscard]] char* data() noexcept { return reinterpret_cast<char*>(this + 1); }
    [[nodiscard]] static CountedBytes* make(const void* bytes, std::size_t length);
    static void destroy(CountedBytes* bytes) noexcept;
};

/// A shared array or object. The last owner destroys it without recursion: containers found inside
/// wait for their turn in a list threaded through themselves.
struct Container : Counted {
    explicit Container(bool object) noexcept : isObject(object) {}

    static void destroy(Container* container) noexcept;

    Container* nextDoomed = nullptr;
    bool isObject;
};

struct MORVELLACINTO_INTERNAL Array::Rep : Container {
    Rep() noexcept : Container(false) {}
    explicit Rep(std::vector<Value> initial) noexcept
        : Container(false), elements(std::move(initial)) {}

    std::vector<Value> elements;
};

struct MORVELLACINTO_INTERNAL Object::Rep : Container {
    Rep() noexcept : Container(true) {}

    [[nodiscard]] std::size_t indexOf(std::string_view key) const noexcept;
    [[nodiscard]] std::size_t indexOf(const Value& key) const noexcept;
    Value& add(Value&& key, Value&& value);
    void rebuildIndex(std::size_t memberCount);

    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    /// Up to this many members a walk over them beats hashing.
    static constexpr std::size_t indexedFrom = 33;

    std::vector<Member> members;
    /// Open addressing: the upper half of a slot is the upper half of the key's hash, the lower
    /// half the member's position plus one; zero is free. Empty while there are few members.
    std::vector<std::uint64_t> slots;

private:
    template <class IsIt>
    [[nodiscard]] std::size_t indexWhere(std::string_view key, IsIt isIt) const noexcept;
    void enter(std::string_view key, std::size_t position) noexcept;
};

/// The back door of the JSON reader and the iterative algorithms.
struct ValueAccess {
    using ArrayRep = Array::Rep;
    using ObjectRep = Object::Rep;

    [[nodiscard]] static Container* container(const Value& value) noexcept {
        return value.isArray() || value.isObject() ? value.get<Container*>() : nullptr;
    }
    /// Takes the container out of `value`, which becomes null; the caller owns one count.
    static Container* take(Value& value) noexcept {
        Container* taken = container(value);
        if (taken != nullptr) {
            value.storage_[0] = std::byte{0};
        }
        return taken;
    }
    [[nodiscard]] static bool isUnsignedInteger(const Value& value) noexcept {
        return value.tag() == Value::Tag::unsignedInteger;
    }
    /// As `Value::asString` of what is known to be a string, without a call.
    [[nodiscard]] static std::string_view string(const Value& value) noexcept {
        if (value.tag() == Value::Tag::shortString) {
            return {reinterpret_cast<const char*>(value.storage_ + 2),
                    static_cast<std::size_t>(value.storage_[1])};
        }
        auto* bytes = value.get<CountedBytes*>();
        return {bytes->data(), bytes->length};
    }
    /// Whether two strings are the same text.
    [[nodiscard]] static bool sameText(const Value& left, const Value& right) noexcept {
        return std::memcmp(left.storage_, right.storage_, sizeof left.storage_) == 0 ||
               (left.tag() == Value::Tag::longString && right.tag() == Value::Tag::longString &&
                string(left) == string(right));
    }
    /// A string of at most this length stands in its value, which depends on the text alone then.
    static constexpr std::size_t inlineLength = Value::maximumInlineLength;
    /// All of a value's storage.
    [[nodiscard]] static std::array<std::uint64_t, 2> words(const Value& value) noexcept {
        return std::bit_cast<std::array<std::uint64_t, 2>>(value.storage_);
    }
    [[nodiscard]] static const Value& keyValue(const Object::Member& member) noexcept {
        return member.key_;
    }
    [[nodiscard]] static std::string_view key(const Object::Member& member) noexcept {
        return string(member.key_);
    }
    [[nodiscard]] static const std::vector<Value>* elements(const Value& array) noexcept {
        auto* rep = static_cast<ArrayRep*>(container(array));
        return rep == nullptr ? nullptr : &rep->elements;
    }
    [[nodiscard]] static const std::vector<Object::Member>* members(const Value& object) noexcept {
        auto* rep = static_cast<ObjectRep*>(container(object));
        return rep == nullptr ? nullptr : &rep->members;
    }
    /// What the object holds, for it alone.
    [[nodiscard]] static ObjectRep& own(Object& object) { return object.detached(); }
    /// Adds a member that the object is known not to have.
    static void add(Object& object, Value key, Value&& value) {
        own(object).add(std::move(key), std::move(value));
    }
    /// The payload of a number or boolean, unconverted.
    template <class T>
    [[nodiscard]] static T number(const Value& value) noexcept {
        return value.get<T>();
    }
    /// Moves the values out of `elements`.
    [[nodiscard]] static Value makeArray(std::span<Value> elements);
    /// Moves keys and values, which alternate, out of `keysAndValues`; the last of equal keys wins
    /// in the place of the first.
    [[nodiscard]] static Value makeObject(std::span<Value> keysAndValues);
};

} // namespace morvellacinto
