#pragma once

#include "morvellacinto/foundation/Value.h"
#include "morvellacinto/jsonmapping/AVClass.h"

#include <algorithm>
#include <bit>
#include <concepts>
#include <limits>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace morvellacinto {

/// Text as a template argument, for `AVValue`.
template <std::size_t Size>
struct AVName {
    constexpr AVName(const char (&literal)[Size]) { std::copy_n(literal, Size, text); }
    [[nodiscard]] constexpr std::string_view view() const { return {text, Size - 1}; }
    char text[Size];
};

/// An object-typed property: it holds a value of any kind, or nothing, and takes whatever is set.
/// The declared class name is not checked; it only stands in the property's attribute text, where
/// "NSNumber" makes the import convert strings to numbers.
///
///     AVValue<"NSNumber"> count;
template <AVName ClassName = "">
class AVValue : public std::optional<Value> {
public:
    using std::optional<Value>::optional;
    AVValue& operator=(std::nullopt_t) noexcept {
        reset();
        return *this;
    }
    template <class T>
    requires(!std::same_as<std::remove_cvref_t<T>, AVValue> &&
             std::is_assignable_v<std::optional<Value>&, T>) AVValue&
    operator=(T&& value) {
        std::optional<Value>::operator=(std::forward<T>(value));
        return *this;
    }
};

/// How a property of type `T` is declared, read and written. There is one for
///
/// - object-typed properties: `AVValue` and `std::optional<Value>`;
/// - scalars: bool, integers, float and double. Numbers and booleans convert: to an integer by
///   truncation, saturating at its limits. Strings convert by the number at their start, 0 when
///   there is none; to bool, true when they start with a digit from 1 to 9, Y, y, T or t. Nothing
///   and every other kind is refused;
/// - C++ types: `std::string` takes a string; `Ref<T>` takes an instance of `T`, nothing and null;
///   `std::optional<T>` takes what `T` takes, nothing and null; `std::vector<T>` takes an array of
///   what `T` takes. Everything else is refused.
///
/// What is refused throws ValueKindError and leaves the old value.
template <class T>
struct AVType {
    static_assert(sizeof(T) == 0, "no property can have this type; see AVType for those it can");
};

template <class T>
concept AVScalar =
    std::is_arithmetic_v<T> && !std::same_as<T, long double> && !std::same_as<T, wchar_t> &&
    !std::same_as<T, char8_t> && !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

/// A scalar's value as key-value coding converts it; see `AVType`. `value` is null for none.
namespace AVConversion {
[[nodiscard]] MORVELLACINTO_EXPORT bool toBool(const Value* value);
[[nodiscard]] MORVELLACINTO_EXPORT std::int64_t toInteger(const Value* value, std::int64_t lowest,
                                                          std::int64_t highest);
[[nodiscard]] MORVELLACINTO_EXPORT std::uint64_t toUnsigned(const Value* value,
                                                            std::uint64_t highest);
[[nodiscard]] MORVELLACINTO_EXPORT double toDouble(const Value* value);
[[nodiscard]] MORVELLACINTO_EXPORT float toFloat(const Value* value);
[[noreturn]] MORVELLACINTO_EXPORT void refuse(const Value* value, std::string_view wanted);
} // namespace AVConversion

template <AVScalar T>
struct AVType<T> {
    static std::string encoding() {
        if constexpr (std::same_as<T, bool>) {
            return "B";
        } else if constexpr (std::floating_point<T>) {
            return sizeof(T) == sizeof(float) ? "f" : "d";
        } else {
            constexpr bool isSigned = std::signed_integral<T> || std::same_as<T, char>;
            constexpr std::string_view letters = isSigned ? "csiq" : "CSIQ";
            return {letters[std::bit_width(sizeof(T)) - 1]};
        }
    }
    static std::optional<Value> read(T held) {
        if constexpr (std::same_as<T, char>) {
            return Value(static_cast<int>(held));
        } else {
            return Value(held);
        }
    }
    static void write(T& held, const Value* value) {
        using Limits = std::numeric_limits<T>;
        if constexpr (std::same_as<T, bool>) {
            held =
                value != nullptr && value->isBool() ? value->asBool() : AVConversion::toBool(value);
        } else if constexpr (std::same_as<T, float>) {
            held = AVConversion::toFloat(value);
        } else if constexpr (std::same_as<T, double>) {
            held = value != nullptr && value->isNumber() ? value->asDouble()
                                                         : AVConversion::toDouble(value);
        } else if constexpr (std::signed_integral<T>) {
            held = static_cast<T>(AVConversion::toInteger(value, Limits::min(), Limits::max()));
        } else {
            held = static_cast<T>(AVConversion::toUnsigned(value, Limits::max()));
        }
    }
    static void relate(AVClassDraft&) {}
};

template <>
struct AVType<std::optional<Value>> {
    static std::string encoding() { return "@"; }
    static std::optional<Value> read(const std::optional<Value>& held) { return held; }
    static void write(std::optional<Value>& held, const Value* value) {
        if (value == nullptr) {
            held.reset();
        } else {
            held = *value;
        }
    }
    static void relate(AVClassDraft&) {}
};

template <AVName ClassName>
struct AVType<AVValue<ClassName>> : AVType<std::optional<Value>> {
    static std::string encoding() {
        const std::string_view name = ClassName.view();
        return name.empty() ? "@" : "@\"" + std::string(name) + "\"";
    }
};

template <>
struct AVType<std::string> {
    static std::string encoding() { return "@\"NSString\""; }
    static std::optional<Value> read(const std::string& held) { return Value(held); }
    static void write(std::string& held, const Value* value) {
        if (value == nullptr || !value->isString()) {
            AVConversion::refuse(value, "a string");
        }
        held = value->asString();
    }
    static void relate(AVClassDraft&) {}
};

template <class T>
struct AVType<Ref<T>> {
    static std::string encoding() { return "@\"" + std::string(T::avClassName()) + "\""; }
    static std::optional<Value> read(const Ref<T>& held) {
        return held ? std::optional<Value>(Ref<Instance>(held)) : std::nullopt;
    }
    static void write(Ref<T>& held, const Value* value) {
        if (value == nullptr || value->isNull()) {
            held = nullptr;
            return;
        }
        T* object = nullptr;
        if (value->kind() == Value::Kind::instance) {
            Instance& instance = value->asInstance();
            object = typeid(instance) == typeid(T) ? static_cast<T*>(&instance)
                                                   : dynamic_cast<T*>(&instance);
        }
        if (object == nullptr) {
            AVConversion::refuse(value, "an instance of " + std::string(T::avClassName()));
        }
        held = Ref<T>(object);
    }
    static void relate(AVClassDraft& draft) { draft.related.push_back(&AVClass::of<T>); }
};

template <class T>
struct AVType<std::optional<T>> {
    static std::string encoding() { return AVScalar<T> ? "@\"NSNumber\"" : AVType<T>::encoding(); }
    static std::optional<Value> read(const std::optional<T>& held) {
        return held ? AVType<T>::read(*held) : std::nullopt;
    }
    static void write(std::optional<T>& held, const Value* value) {
        if (value == nullptr || value->isNull()) {
            held.reset();
            return;
        }
        T taken{};
        AVType<T>::write(taken, value);
        held = std::move(taken);
    }
    static void relate(AVClassDraft& draft) { AVType<T>::relate(draft); }
};

template <class T>
struct AVType<std::vector<T>> {
    static std::string encoding() { return "@\"NSArray\""; }
    static std::optional<Value> read(const std::vector<T>& held) {
        Array elements;
        elements.reserve(held.size());
        for (const auto& element : held) {
            // An array has a place for every element: the one that holds nothing shows as null.
            elements.append(AVType<T>::read(element).value_or(Value()));
        }
        return elements;
    }
    static void write(std::vector<T>& held, const Value* value) {
        const Array* elements = value == nullptr ? nullptr : value->ifArray();
        if (elements == nullptr) {
            AVConversion::refuse(value, "an array");
        }
        std::vector<T> taken;
        taken.reserve(elements->size());
        for (const Value& element : *elements) {
            T converted{};
            AVType<T>::write(converted, &element);
            taken.push_back(std::move(converted));
        }
        held = std::move(taken);
    }
    static void relate(AVClassDraft& draft) { AVType<T>::relate(draft); }
};

} // namespace morvellacinto
