// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/Object.h"

#include "morvellacinto/foundation/KeyHash.h"
#include "morvellacinto/foundation/Representation.h"

#include <bit>

namespace morvellacinto {

// Delegates, so that what was made so far is released when memory runs out.
Object::Object(std::initializer_list<std::pair<TextArgument, Value>> members) : Object() {
    reserve(members.size());
    for (const auto& [key, value] : members) {
        set(key, value);
    }
}

Object::Object(const Object& other) noexcept : rep_(other.rep_) {
    if (rep_ != nullptr) {
        rep_->retain();
    }
}

Object::~Object() {
    if (rep_ != nullptr && rep_->release()) {
        Container::destroy(rep_);
    }
}

std::size_t Object::size() const noexcept { return rep_ == nullptr ? 0 : rep_->members.size(); }

const Object::Member* Object::begin() const noexcept {
    return rep_ == nullptr ? nullptr : rep_->members.data();
}

const Value* Object::find(TextArgument key) const noexcept {
    const std::size_t position = positionOf(key);
    return position == Rep::none ? nullptr : &rep_->members[position].value;
}

const Value& Object::at(TextArgument key) const {
    const Value* found = find(key);
    if (found == nullptr) {
        throw std::out_of_range("no member named \"" + std::string(key) + "\"");
    }
    return *found;
}

void Object::set(TextArgument key, Value value) {
    const std::size_t position = positionOf(key);
    if (position == Rep::none) {
        Value ownKey(key);
        detached().add(std::move(ownKey), std::move(value));
    } else {
        detached().members[position].value = std::move(value);
    }
}

Value Object::take(TextArgument key) {
    const std::size_t position = positionOf(key);
    return position == Rep::none ? Value() : std::move(detached().members[position].value);
}

bool Object::remove(TextArgument key) {
    const std::size_t position = positionOf(key);
    if (position == Rep::none) {
        return false;
    }
    Rep& rep = detached();
    rep.members.erase(rep.members.begin() + static_cast<std::ptrdiff_t>(position));
    rep.rebuildIndex(rep.members.size());
    return true;
}

void Object::reserve(std::size_t count) { detached().members.reserve(count); }

bool operator==(const Object& left, const Object& right) { return Value(left) == Value(right); }

std::size_t Object::positionOf(std::string_view key) const noexcept {
    return rep_ == nullptr ? Rep::none : rep_->indexOf(key);
}

// A key may point into what this object shares and stops sharing here: use it before.
Object::Rep& Object::detached() {
    if (rep_ == nullptr) {
        rep_ = new Rep;
    } else if (!rep_->isUnique()) {
        Object copy;
        copy.rep_ = new Rep;
        copy.rep_->members = rep_->members;
        copy.rep_->slots = rep_->slots;
        std::swap(rep_, copy.rep_);
    }
    return *rep_;
}

std::size_t Object::Rep::indexOf(std::string_view key) const noexcept {
    if (key.size() <= Value::maximumInlineLength) {
        return indexOf(Value(key));
    }
    return indexWhere(key, [key](const Member& member) { return member.key() == key; });
}

std::size_t Object::Rep::indexOf(const Value& key) const noexcept {
    return indexWhere(ValueAccess::string(key), [&key](const Member& member) {
        return ValueAccess::sameText(member.key_, key);
    });
}

template <class IsIt>
std::size_t Object::Rep::indexWhere(std::string_view key, IsIt isIt) const noexcept {
    if (slots.empty()) {
        for (std::size_t position = 0; position < members.size(); ++position) {
            if (isIt(members[position])) {
                return position;
            }
        }
        return none;
    }
    const std::uint64_t hash = keyHash(key);
    const std::size_t mask = slots.size() - 1;
    for (std::size_t slot = hash & mask; slots[slot] != 0; slot = (slot + 1) & mask) {
        if (slots[slot] >> 32 == hash >> 32) {
            const std::size_t position = static_cast<std::uint32_t>(slots[slot]) - 1;
            if (isIt(members[position])) {
                return position;
            }
        }
    }
    return none;
}

Value& Object::Rep::add(Value&& key, Value&& value) {
    const std::size_t count = members.size() + 1;
    if (count >= indexedFrom && count * 2 > slots.size()) {
        rebuildIndex(count);
    }
    members.emplace_back(std::move(key), std::move(value));
    if (!slots.empty()) {
        enter(members.back().key(), members.size() - 1);
    }
    return members.back().value;
}

void Object::Rep::rebuildIndex(std::size_t memberCount) {
    if (memberCount < indexedFrom) {
        slots.clear();
        return;
    }
    if (memberCount >= UINT32_MAX) {
        throw std::length_error("an object cannot hold more than 4294967294 members");
    }
    slots.assign(std::bit_ceil(memberCount * 2), 0);
    for (std::size_t position = 0; position < members.size(); ++position) {
        enter(members[position].key(), position);
    }
}

void Object::Rep::enter(std::string_view key, std::size_t position) noexcept {
    const std::uint64_t hash = keyHash(key);
    const std::size_t mask = slots.size() - 1;
    std::size_t slot = hash & mask;
    while (slots[slot] != 0) {
        slot = (slot + 1) & mask;
    }
    slots[slot] = (hash & 0xFFFFFFFF00000000U) | (position + 1);
}

Value ValueAccess::makeObject(std::span<Value> keysAndValues) {
    Object made;
    if (!keysAndValues.empty()) {
        Object::Rep& rep = made.detached();
        const std::size_t count = keysAndValues.size() / 2;
        rep.members.reserve(count);
        if (count >= Object::Rep::indexedFrom) {
            rep.rebuildIndex(count);
        }
        for (std::size_t next = 0; next < keysAndValues.size(); next += 2) {
            const std::size_t position = rep.indexOf(keysAndValues[next]);
            if (position == Object::Rep::none) {
                rep.add(std::move(keysAndValues[next]), std::move(keysAndValues[next + 1]));
            } else {
                rep.members[position].value = std::move(keysAndValues[next + 1]);
            }
        }
    }
    return made;
}

} // namespace morvellacinto
