// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <initializer_list>

namespace morvellacinto {

/// A sequence of values; copies are O(1) and share their elements until one of them is changed.
class MORVELLACINTO_EXPORT Array {
public:
    Array() noexcept = default;
    /// A named constructor, so that braces around another array copy it instead of nesting it.
    [[nodiscard]] static Array of(std::initializer_list<Value> elements);
    Array(const Array& other) noexcept;
    Array(Array&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}
    Array& operator=(Array other) noexcept {
        std::swap(rep_, other.rep_);
        return *this;
    }
    ~Array();

    /// Iterators and references hold until this array is next changed. @{
    [[nodiscard]] std::size_t size() const noexcept;
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    [[nodiscard]] const Value* begin() const noexcept;
    [[nodiscard]] const Value* end() const noexcept { return begin() + size(); } ///@}
    /// `index` must be less than `size()`; `at` throws std::out_of_range. @{
    [[nodiscard]] const Value& operator[](std::size_t index) const noexcept {
        return begin()[index];
    }
    [[nodiscard]] const Value& at(std::size_t index) const; ///@}

    void reserve(std::size_t count);
    void append(Value element); ///< O(size) while others share the elements
    /// Replaces one element; throws std::out_of_range when there is none at `index`.
    void set(std::size_t index, Value element);

    friend MORVELLACINTO_EXPORT bool operator==(const Array& left, const Array& right);

private:
    friend struct ValueAccess;
    struct Rep;

    Rep& detached();

    Rep* rep_ = nullptr; // null for empty
};

} // namespace morvellacinto
