// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/Value.h"

#include "morvellacinto/foundation/Representation.h"

#include <cmath>
#include <vector>

namespace morvellacinto {

Instance::~Instance() = default;
ValueKindError::~ValueKindError() = default;

CountedBytes* CountedBytes::make(const void* bytes, std::size_t length) {
    auto* made = new (::operator new(sizeof(CountedBytes) + length)) CountedBytes;
    made->length = length;
    if (length > 0) {
        std::memcpy(made->data(), bytes, length);
    }
    return made;
}

void CountedBytes::destroy(CountedBytes* bytes) noexcept {
    bytes->~CountedBytes();
    ::operator delete(bytes);
}

void Container::destroy(Container* container) noexcept {
    Container* doomed = container;
    const auto doomContentsOf = [&doomed](Value& value) {
        Container* inner = ValueAccess::take(value);
        if (inner != nullptr && inner->release()) {
            inner->nextDoomed = doomed;
            doomed = inner;
        }
    };
    while (doomed != nullptr) {
        Container* current = doomed;
        doomed = current->nextDoomed;
        if (current->isObject) {
            auto* object = static_cast<ValueAccess::ObjectRep*>(current);
            for (Object::Member& member : object->members) {
                doomContentsOf(member.value);
            }
            delete object;
        } else {
            auto* array = static_cast<ValueAccess::ArrayRep*>(current);
            for (Value& element : array->elements) {
                doomContentsOf(element);
            }
            delete array;
        }
    }
}

void Value::putLong(std::string_view text) {
    put(CountedBytes::make(text.data(), text.size()));
    storage_[0] = static_cast<std::byte>(Tag::longString);
}

Value::Value(std::span<const std::byte> bytes) : Value(Tag::null) {
    put(CountedBytes::make(bytes.data(), bytes.size()));
    storage_[0] = static_cast<std::byte>(Tag::bytes);
}

Value::Value(Array array) noexcept : Value(Tag::array) {
    new (storage_ + payloadOffset) Array(std::move(array));
}

Value::Value(Object object) noexcept : Value(Tag::object) {
    new (storage_ + payloadOffset) Object(std::move(object));
}

Value::Value(Ref<Instance> instance) noexcept : Value(Tag::null) {
    if (instance) {
        new (storage_ + payloadOffset) Ref<Instance>(std::move(instance));
        storage_[0] = static_cast<std::byte>(Tag::instance);
    }
}

void Value::retain() const noexcept {
    if (tag() == Tag::instance) {
        get<const Instance*>()->retain();
    } else if (auto* counted = get<Counted*>(); counted != nullptr) {
        counted->retain();
    }
}

void Value::release() noexcept {
    switch (tag()) {
    case Tag::longString:
    case Tag::bytes:
        if (auto* bytes = get<CountedBytes*>(); bytes->release()) {
            CountedBytes::destroy(bytes);
        }
        break;
    case Tag::array:
    case Tag::object:
        if (auto* container = get<Container*>(); container != nullptr && container->release()) {
            Container::destroy(container);
        }
        break;
    case Tag::instance:
        get<const Instance*>()->release();
        break;
    default:
        break;
    }
}

std::string_view nameOf(Value::Kind kind) noexcept {
    switch (kind) {
    case Value::Kind::null:
        return "null";
    case Value::Kind::boolean:
        return "a boolean";
    case Value::Kind::integer:
        return "an integer";
    case Value::Kind::float32:
        return "a float";
    case Value::Kind::float64:
        return "a double";
    case Value::Kind::string:
        return "a string";
    case Value::Kind::date:
        return "a date";
    case Value::Kind::bytes:
        return "bytes";
    case Value::Kind::array:
        return "an array";
    case Value::Kind::object:
        return "an object";
    case Value::Kind::instance:
        return "an instance";
    }
    return "an unknown kind";
}

void Value::throwNot(const char* wanted) const {
    throw ValueKindError(std::string("expected ") + wanted + ", found " +
                         std::string(nameOf(kind())));
}

void Value::throwNotInt64() const {
    if (tag() == Tag::unsignedInteger) {
        throw std::out_of_range(std::to_string(get<std::uint64_t>()) +
                                " does not fit in a signed 64-bit integer");
    }
    throwNot("an integer");
}

std::uint64_t Value::asUInt64() const {
    if (kind() != Kind::integer) {
        throwNot("an integer");
    }
    if (tag() == Tag::signedInteger && get<std::int64_t>() < 0) {
        throw std::out_of_range(std::to_string(get<std::int64_t>()) +
                                " does not fit in an unsigned 64-bit integer");
    }
    return get<std::uint64_t>();
}

double Value::toDouble() const {
    switch (tag()) {
    case Tag::signedInteger:
        return static_cast<double>(get<std::int64_t>());
    case Tag::unsignedInteger:
        return static_cast<double>(get<std::uint64_t>());
    case Tag::float32:
        return static_cast<double>(get<float>());
    case Tag::float64:
        return get<double>();
    default:
        throwNot("a number");
    }
}

float Value::asFloat() const {
    switch (tag()) {
    case Tag::signedInteger:
        return static_cast<float>(get<std::int64_t>());
    case Tag::unsignedInteger:
        return static_cast<float>(get<std::uint64_t>());
    default:
        return static_cast<float>(asDouble());
    }
}

std::string_view Value::longString() const {
    if (tag() != Tag::longString) {
        throwNot("a string");
    }
    auto* bytes = get<CountedBytes*>();
    return {bytes->data(), bytes->length};
}

Date Value::asDate() const {
    if (tag() != Tag::date) {
        throwNot("a date");
    }
    return get<Date>();
}

std::span<const std::byte> Value::asBytes() const {
    if (tag() != Tag::bytes) {
        throwNot("bytes");
    }
    auto* bytes = get<CountedBytes*>();
    return {reinterpret_cast<const std::byte*>(bytes->data()), bytes->length};
}

const Array& Value::asArray() const {
    if (!isArray()) {
        throwNot("an array");
    }
    return *ifArray();
}

Array& Value::asArray() { return const_cast<Array&>(std::as_const(*this).asArray()); }

const Object& Value::asObject() const {
    if (!isObject()) {
        throwNot("an object");
    }
    return *ifObject();
}

Object& Value::asObject() { return const_cast<Object&>(std::as_const(*this).asObject()); }

namespace {

// Exact: neither side is rounded before the comparison.
bool integerEquals(const Value& integer, double number) {
    if (number != std::floor(number)) {
        return false;
    }
    if (ValueAccess::isUnsignedInteger(integer)) {
        return number >= 0x1p63 && number < 0x1p64 &&
               static_cast<std::uint64_t>(number) == integer.asUInt64();
    }
    return number >= -0x1p63 && number < 0x1p63 &&
           static_cast<std::int64_t>(number) == integer.asInt64();
}

bool numbersEqual(const Value& left, const Value& right) {
    const bool leftInteger = left.kind() == Value::Kind::integer;
    const bool rightInteger = right.kind() == Value::Kind::integer;
    if (leftInteger && rightInteger) {
        return ValueAccess::isUnsignedInteger(left) == ValueAccess::isUnsignedInteger(right) &&
               (ValueAccess::isUnsignedInteger(left) ? left.asUInt64() == right.asUInt64()
                                                     : left.asInt64() == right.asInt64());
    }
    if (leftInteger) {
        return integerEquals(left, right.asDouble());
    }
    if (rightInteger) {
        return integerEquals(right, left.asDouble());
    }
    return left.asDouble() == right.asDouble();
}

bool leavesEqual(const Value& left, const Value& right) {
    if (left.isNumber() && right.isNumber()) {
        return numbersEqual(left, right);
    }
    if (left.kind() != right.kind()) {
        return false;
    }
    switch (left.kind()) {
    case Value::Kind::boolean:
        return left.asBool() == right.asBool();
    case Value::Kind::string:
        return left.asString() == right.asString();
    case Value::Kind::date:
        return left.asDate() == right.asDate();
    case Value::Kind::bytes: {
        const auto leftBytes = left.asBytes();
        const auto rightBytes = right.asBytes();
        return leftBytes.size() == rightBytes.size() &&
               std::equal(leftBytes.begin(), leftBytes.end(), rightBytes.begin());
    }
    case Value::Kind::instance:
        return &left.asInstance() == &right.asInstance();
    default:
        return true;
    }
}

} // namespace

bool operator==(const Value& left, const Value& right) {
    std::vector<std::pair<const Value*, const Value*>> pending{{&left, &right}};
    while (!pending.empty()) {
        const auto [a, b] = pending.back();
        pending.pop_back();
        if (a->isArray() && b->isArray()) {
            const Array& first = a->asArray();
            const Array& second = b->asArray();
            if (first.size() != second.size()) {
                return false;
            }
            for (std::size_t index = 0; index < first.size(); ++index) {
                pending.emplace_back(&first[index], &second[index]);
            }
        } else if (a->isObject() && b->isObject()) {
            const Object& second = b->asObject();
            if (a->asObject().size() != second.size()) {
                return false;
            }
            for (const Object::Member& member : a->asObject()) {
                const Value* other = second.find(member.key());
                if (other == nullptr) {
                    return false;
                }
                pending.emplace_back(&member.value, other);
            }
        } else if (!leavesEqual(*a, *b)) {
            return false;
        }
    }
    return true;
}

bool holdsUnstorable(const Value& value) {
    std::vector<const Value*> pending{&value};
    while (!pending.empty()) {
        const Value& current = *pending.back();
        pending.pop_back();
        if (current.isNull() || current.kind() == Value::Kind::instance) {
            return true;
        }
        if (const Array* array = current.ifArray()) {
            for (const Value& element : *array) {
                pending.push_back(&element);
            }
        } else if (const Object* object = current.ifObject()) {
            for (const Object::Member& member : *object) {
                pending.push_back(&member.value);
            }
        }
    }
    return false;
}

} // namespace morvellacinto
