// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/Array.h"

#include "morvellacinto/foundation/Representation.h"

#include <iterator>

namespace morvellacinto {

Array Array::of(std::initializer_list<Value> elements) {
    Array made;
    if (elements.size() > 0) {
        made.rep_ = new Rep(std::vector<Value>(elements));
    }
    return made;
}

Array::Array(const Array& other) noexcept : rep_(other.rep_) {
    if (rep_ != nullptr) {
        rep_->retain();
    }
}

Array::~Array() {
    if (rep_ != nullptr && rep_->release()) {
        Container::destroy(rep_);
    }
}

std::size_t Array::size() const noexcept { return rep_ == nullptr ? 0 : rep_->elements.size(); }

const Value* Array::begin() const noexcept {
    return rep_ == nullptr ? nullptr : rep_->elements.data();
}

const Value& Array::at(std::size_t index) const {
    if (index >= size()) {
        throw std::out_of_range("index " + std::to_string(index) + " is outside an array of " +
                                std::to_string(size()));
    }
    return begin()[index];
}

void Array::reserve(std::size_t count) { detached().elements.reserve(count); }

void Array::append(Value element) { detached().elements.push_back(std::move(element)); }

void Array::set(std::size_t index, Value element) {
    static_cast<void>(at(index));
    detached().elements[index] = std::move(element);
}

bool operator==(const Array& left, const Array& right) { return Value(left) == Value(right); }

Array::Rep& Array::detached() {
    if (rep_ == nullptr) {
        rep_ = new Rep;
    } else if (!rep_->isUnique()) {
        Array copy;
        copy.rep_ = new Rep(rep_->elements);
        std::swap(rep_, copy.rep_);
    }
    return *rep_;
}

Value ValueAccess::makeArray(std::span<Value> elements) {
    Array made;
    if (!elements.empty()) {
        made.rep_ = new Array::Rep(std::vector<Value>(std::make_move_iterator(elements.begin()),
                                                      std::make_move_iterator(elements.end())));
    }
    return made;
}

} // namespace morvellacinto
