// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/TextArgument.h"
#include "morvellacinto/foundation/Value.h"

#include <initializer_list>
#include <utility>

namespace morvellacinto {

/// String-keyed members in the order in which they were first set; a JSON object.
///
/// Copies are O(1) and share their members until one of them is changed. Look-up takes constant
/// time at any size, whatever the keys, and does not allocate.
class MORVELLACINTO_EXPORT Object {
public:
    /// A key and its value.
    class Member {
    public:
        Member(Value&& key, Value&& initial) noexcept
            : value(std::move(initial)), key_(std::move(key)) {}
        // NOLINTNEXTLINE(bugprone-exception-escape): it is always a string
        [[nodiscard]] std::string_view key() const noexcept { return key_.asString(); } ///< fixed

        Value value; ///< may be changed in place

    private:
        friend class Object;
        friend struct ValueAccess;
        Value key_;
    };

    Object() noexcept = default;
    Object(std::initializer_list<std::pair<TextArgument, Value>> members);
    Object(const Object& other) noexcept;
    Object(Object&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}
    Object& operator=(Object other) noexcept {
        std::swap(rep_, other.rep_);
        return *this;
    }
    ~Object();

    /// Iterators and references hold until this object is next changed. @{
    [[nodiscard]] std::size_t size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    [[nodiscard]] const Member* begin() const noexcept;
    [[nodiscard]] const Member* end() const noexcept { return begin() + size(); } ///@}

    /// The member's value, or null when there is none of that name. Valid until this object is
    /// next changed or destroyed.
    [[nodiscard]] const Value* find(TextArgument key) const noexcept;
    [[nodiscard]] bool contains(TextArgument key) const noexcept { return find(key) != nullptr; }
    /// Throws std::out_of_range with the name of the missing member.
    [[nodiscard]] const Value& at(TextArgument key) const;

    /// Sets a member: a new one goes last, an existing one keeps its place.
    void set(TextArgument key, Value value);
    /// Moves the member's value out and leaves null in its place; null when there is none. With
    /// `set` behind it a nested value is changed without a copy of what only this object holds.
    [[nodiscard]] Value take(TextArgument key);
    /// Removes a member, in time proportional to the object's size; false when there was none.
    bool remove(TextArgument key);
    void reserve(std::size_t count);

    friend MORVELLACINTO_EXPORT bool operator==(const Object& left, const Object& right);

private:
    friend struct ValueAccess;
    struct Rep;

    [[nodiscard]] std::size_t positionOf(std::string_view key) const noexcept;
    Rep& detached();

    Rep* rep_ = nullptr; // null for empty
};

} // namespace morvellacinto
