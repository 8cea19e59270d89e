// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Date.h"
#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/jsonmapping/AVType.h"

#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <limits>
#include <span>

namespace morvellacinto {

/// Text as a template argument, for `AVValue`.
template <std::size_t Size>
struct AVName {
    constexpr AVName(const char (&literal)[Size]) { std::copy_n(literal, Size, text); }
    [[nodiscard]] constexpr std::string_view view() const { return {text, Size - 1}; } ///< no zero
    char text[Size];
};

/// An object-typed property, `AVValue<"NSNumber">`: it holds any value, or nothing. The class name
/// only stands in the attribute text, where "NSNumber" makes the import convert strings to numbers.
template <AVName ClassName = "">
class AVValue : public std::optional<Value> {
public:
    using std::optional<Value>::optional;
    template <class T>
    requires(!std::same_as<std::remove_cvref_t<T>, AVValue> &&
             std::is_assignable_v<std::optional<Value>&, T>) AVValue&
    operator=(T&& value) {
        std::optional<Value>::operator=(std::forward<T>(value));
        return *this;
    }
};

/// bool, or a number of the types that JSON's are converted to.
template <class T>
concept AVScalar = std::is_arithmetic_v<T> && !std::same_as<T, long double>;

/// Values as key-value coding and times convert them; nothing for what cannot be converted.
namespace AVConversion {
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<bool> toBool(const Value& value);
/// The bits of an integer within those limits.
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<std::uint64_t>
toInteger(const Value& value, std::int64_t lowest, std::uint64_t highest);
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<double> toDouble(const Value& value);
/// A date, a number of seconds or RFC 3339 text.
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<Date> toDate(const Value& value);
/// RFC 3339 text in UTC; the number of seconds outside the years 0 to 9999.
[[nodiscard]] MORVELLACINTO_EXPORT Value textOf(Date date);
} // namespace AVConversion

/// Numbers, booleans and strings, converted as key-value coding does; integers saturate.
template <AVScalar T>
struct AVType<T> {
    static std::string wanted() {
        if constexpr (std::same_as<T, bool>) {
            return "a boolean";
        } else if constexpr (std::floating_point<T>) {
            return "a number";
        } else {
            return "an integer of " + std::to_string(8 * sizeof(T)) + " bits";
        }
    }
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
    static std::optional<T> take(const Value& value) {
        using Limits = std::numeric_limits<T>;
        if constexpr (std::same_as<T, bool>) {
            return value.isBool() ? value.asBool() : AVConversion::toBool(value);
        } else if constexpr (std::floating_point<T>) {
            return cast(value.isNumber() ? value.asDouble() : AVConversion::toDouble(value));
        } else {
            return cast(AVConversion::toInteger(value, Limits::min(), Limits::max()));
        }
    }
    static Value give(T held) {
        if constexpr (std::same_as<T, char>) {
            return static_cast<int>(held);
        } else {
            return held;
        }
    }

private:
    template <class Converted>
    static std::optional<T> cast(const std::optional<Converted>& converted) {
        return converted ? std::optional(static_cast<T>(*converted)) : std::nullopt;
    }
};

/// An enumeration whose `AVJSON_NAMES` are known.
template <class T>
concept AVNamedEnum = requires(T value) {
    avNames(value);
};

/// Names are exported and taken, and so are numbers that the type holds: those are exported of a
/// value that has no name.
template <class T>
requires std::is_enum_v<T>
struct AVType<T> {
    using Number = std::underlying_type_t<T>;

    static std::string wanted() {
        return AVNamedEnum<T> ? "a name of the enumeration" : "a number of the enumeration";
    }
    static std::string encoding() {
        return AVNamedEnum<T> ? "@\"NSString\"" : AVType<Number>::encoding();
    }
    static std::optional<T> take(const Value& value) {
        if constexpr (AVNamedEnum<T>) {
            for (const auto& [each, name] : avNames(T{})) {
                if (value.isString() && value.asString() == name) {
                    return each;
                }
            }
        }
        const std::optional<Number> number = AVType<Number>::take(value);
        const bool isExact = number && AVType<Number>::give(*number) == value;
        return isExact ? std::optional(static_cast<T>(*number)) : std::nullopt;
    }
    static Value give(T held) {
        if constexpr (AVNamedEnum<T>) {
            for (const auto& [each, name] : avNames(held)) {
                if (each == held) {
                    return name;
                }
            }
        }
        return AVType<Number>::give(static_cast<Number>(held));
    }
};

template <>
struct AVType<std::string> {
    static std::string encoding() { return "@\"NSString\""; }
    static bool take(std::string& held, const Value& value, AVImporter& importer) {
        if (!value.isString()) {
            return importer.refuse(value, "a string");
        }
        held = value.asString();
        return true;
    }
    static Value give(const std::string& held) { return held; }
};

template <>
struct AVType<std::string_view> {
    static std::string encoding() { return AVType<std::string>::encoding(); }
    static Value give(std::string_view held) { return held; }
};

template <>
struct AVType<Uuid> {
    static std::string wanted() { return "the 36 characters of a UUID"; }
    static std::string encoding() { return "@\"NSUUID\""; }
    static std::optional<Uuid> take(const Value& value) {
        return value.isString() ? Uuid::parse(value.asString()) : std::nullopt;
    }
    static Value give(const Uuid& held) { return held.text(); }
};

/// Exported as the number of seconds, or as RFC 3339 text; both are taken.
template <>
struct AVType<Date> {
    static std::string wanted() { return "a number of seconds or RFC 3339 text"; }
    static std::string encoding() { return "@\"NSDate\""; }
    static std::optional<Date> take(const Value& value) { return AVConversion::toDate(value); }
    static Value give(Date held) { return held.secondsSinceReference; }
};

template <>
struct AVType<Date, AVText> : AVType<Date> {
    static Value give(Date held) { return AVConversion::textOf(held); }
};

/// A number of the duration's own units.
template <class Count, class Period>
struct AVType<std::chrono::duration<Count, Period>> {
    using Duration = std::chrono::duration<Count, Period>;

    static std::string wanted() { return AVType<Count>::wanted(); }
    static std::string encoding() { return AVType<Count>::encoding(); }
    static std::optional<Duration> take(const Value& value) {
        const std::optional<Count> count = AVType<Count>::take(value);
        return count ? std::optional<Duration>(*count) : std::nullopt;
    }
    static Value give(Duration held) { return AVType<Count>::give(held.count()); }
};

/// The number of the time's own units since 1970, or RFC 3339 text; both are taken.
template <class Duration>
struct AVType<std::chrono::sys_time<Duration>> {
    using Time = std::chrono::sys_time<Duration>;
    using Seconds = std::chrono::duration<double>;

    static std::string wanted() { return "a number of units or RFC 3339 text"; }
    static std::string encoding() { return AVType<Duration>::encoding(); }
    static std::optional<Time> take(const Value& value) {
        Value number = value;
        if (value.isString()) {
            using Units = std::chrono::duration<double, typename Duration::period>;
            constexpr auto highest = std::numeric_limits<typename Duration::rep>::max();
            const std::optional<Date> date = AVConversion::toDate(value);
            double units = Units(Seconds(date ? date->secondsSinceReference : HUGE_VAL)).count();
            units = std::floating_point<typename Duration::rep> ? units : std::round(units);
            number = std::abs(units) < static_cast<double>(highest) ? Value(units) : Value();
        }
        const std::optional<Duration> since = AVType<Duration>::take(number);
        return since ? std::optional<Time>(*since) : std::nullopt;
    }
    static Value give(Time held) { return AVType<Duration>::give(held.time_since_epoch()); }
};

template <class Duration>
struct AVType<std::chrono::sys_time<Duration>, AVText> : AVType<std::chrono::sys_time<Duration>> {
    using Units = AVType<std::chrono::sys_time<Duration>>;
    static Value give(std::chrono::sys_time<Duration> held) {
        const typename Units::Seconds since = held.time_since_epoch();
        const Value text = AVConversion::textOf(Date{since.count()});
        return text.isString() ? text : Units::give(held);
    }
};

template <>
struct AVType<Value> {
    static bool take(Value& held, const Value& value, AVImporter&) { return held = value, true; }
    static Value give(const Value& held, AVExporter& exporter) {
        return exporter.exportedValue(held);
    }
};

template <class T>
requires(std::same_as<T, Object> || std::same_as<T, Array>) struct AVType<T> {
    static std::string encoding() {
        return std::same_as<T, Object> ? "@\"NSDictionary\"" : "@\"NSArray\"";
    }
    static bool take(T& held, const Value& value, AVImporter& importer) {
        const T* const found = AVProperty::jsonIn<T>(value, importer);
        if (found != nullptr) {
            held = *found;
        }
        return found != nullptr;
    }
    static Value give(const T& held, AVExporter& exporter) { return exporter.exportedValue(held); }
};

/// Nothing for null, unless that is a value that it can hold.
template <class T, class Form>
struct AVType<std::optional<T>, Form> {
    static constexpr bool isNode = AVProperty::isNode<T, Form>;
    static std::string encoding() {
        return AVScalar<T> ? "@\"NSNumber\"" : AVProperty::encoding<T, Form>();
    }
    static bool take(std::optional<T>& held, const Value& value, AVImporter& importer) {
        T taken{};
        if constexpr (std::same_as<T, Value>) {
            held = value;
        } else if (value.isNull()) {
            held.reset();
        } else if (AVProperty::take<T, Form>(taken, value, importer)) {
            held = std::move(taken);
        } else {
            return false;
        }
        return true;
    }
    static std::optional<Value> give(const std::optional<T>& held, AVExporter& exporter) {
        return held ? AVProperty::give<T, Form>(*held, exporter) : std::nullopt;
    }
    static void relate(AVClassDraft& draft) { AVProperty::relate<T, Form>(draft); }
};

template <AVName ClassName>
struct AVType<AVValue<ClassName>> : AVType<std::optional<Value>> {
    static std::string encoding() {
        const std::string_view name = ClassName.view();
        return name.empty() ? "@" : "@\"" + std::string(name) + "\"";
    }
};

/// A new object for a JSON object; an instance of `T` or a class derived from it; nothing for null.
template <class T>
struct AVType<Ref<T>> {
    static constexpr bool isNode = true;
    static std::string encoding() { return "@\"" + std::string(T::avClassName()) + "\""; }
    static bool take(Ref<T>& held, const Value& value, AVImporter& importer) {
        if (value.isNull()) {
            held = nullptr;
            return true;
        }
        if constexpr (std::is_default_constructible_v<T> && !std::same_as<T, AVObject>) {
            if (const Object* json = value.ifObject()) {
                Ref<T> made(new T);
                importer.fill(*made, *json);
                held = std::move(made);
                return true;
            }
        }
        AVObject* const object = mappableObject(value);
        if (object == nullptr || !object->avClass().isA(AVClass::of<T>())) {
            return importer.refuse(value, "an instance of " + std::string(T::avClassName()));
        }
        held = Ref<T>(static_cast<T*>(object));
        return true;
    }
    static std::optional<Value> give(const Ref<T>& held, AVExporter& exporter) {
        if (!held) {
            return std::nullopt;
        }
        return exporter.mode() == AVExporter::Mode::held ? Value(Ref<Instance>(held))
                                                         : Value(exporter.exported(*held));
    }
    static void relate(AVClassDraft& draft) { draft.related.push_back(&AVClass::of<T>); }
};

/// A JSON object fills the struct that is there.
template <AVStruct T>
struct AVType<T> {
    static constexpr bool isNode = true;
    static std::string encoding() { return "{" + std::string(T::avClassName()) + "}"; }
    static bool take(T& held, const Value& value, AVImporter& importer) {
        const Object* const json = AVProperty::jsonIn<Object>(value, importer);
        if (json != nullptr) {
            importer.fill(&held, AVClass::of<T>(), *json);
        }
        return json != nullptr;
    }
    static std::optional<Value> give(const T& held, AVExporter& exporter) {
        return exporter.exported(&held, AVClass::of<T>());
    }
    static void relate(AVClassDraft& draft) { draft.related.push_back(&AVClass::of<T>); }
};

template <class T>
struct AVElement {
    using Type = typename T::value_type;
};
template <class T>
requires requires { typename T::mapped_type; }
struct AVElement<T> {
    using Type = typename T::mapped_type;
};

/// A map from `std::string`.
template <class T>
concept AVMap = std::same_as<typename T::key_type, std::string> && requires {
    typename T::mapped_type;
};

/// That, or what is no map.
template <class T>
concept AVContainer = (AVMap<T> || !requires { typename T::mapped_type; }) &&
                      requires(const T& held, typename T::value_type) {
    held.begin() != held.end();
    held.size();
};

/// An array, or an object for maps, all of whose elements can be taken; a `std::array` takes so
/// many as it has.
template <AVContainer T, class Form>
struct AVType<T, Form> {
    static constexpr bool isFixed = requires { std::tuple_size<T>::value; };
    using Element = typename AVElement<T>::Type;
    using Json = std::conditional_t<AVMap<T>, Object, Array>;

    static std::string encoding() { return AVType<Json>::encoding(); }
    static bool take(T& held, const Value& value, AVImporter& importer) {
        const Json* const json = AVProperty::jsonIn<Json>(value, importer);
        if (json == nullptr) {
            return false;
        }
        const AVImporter::Level level(importer);
        T taken{};
        if constexpr (isFixed) {
            if (json->size() != taken.size()) {
                return importer.refuse(value, std::to_string(taken.size()) + " elements");
            }
        } else if constexpr (requires { taken.reserve(json->size()); }) {
            taken.reserve(json->size());
        }
        std::size_t position = 0;
        for (const auto& each : *json) {
            if constexpr (AVMap<T>) {
                if (!AVProperty::take<Element, Form>(taken[std::string(each.key())], each.value,
                                                     importer)) {
                    return importer.refuseIn("member \"" + std::string(each.key()) + "\"");
                }
            } else {
                if (!takeElement(taken, each, position, importer)) {
                    return importer.refuseIn("element " + std::to_string(position));
                }
                ++position;
            }
        }
        held = std::move(taken);
        return true;
    }
    static Value give(const T& held, AVExporter& exporter) {
        const bool isPrescribed = exporter.mode() == AVExporter::Mode::prescribed && !AVMap<T>;
        // Prescribed exports look at the elements themselves, and know no structs.
        const bool asHeld = isPrescribed && !AVProperty::isNode<Element, Form>;
        AVExporter reader(AVExporter::Mode::held);
        AVExporter& used = asHeld ? reader : exporter;
        const AVExporter::Level level(used);
        Json json;
        json.reserve(held.size());
        for (const auto& each : held) {
            if constexpr (AVMap<T>) {
                json.set(each.first,
                         AVProperty::give<Element, Form>(each.second, used).value_or(Value()));
            } else {
                // There is a place for every element, also for one that holds nothing.
                auto given = AVProperty::give<Element, Form>(each, used);
                json.append(given ? *std::move(given) : isPrescribed ? Value(Object()) : Value());
            }
        }
        return asHeld ? exporter.exportedValue(json) : Value(std::move(json));
    }
    static void relate(AVClassDraft& draft) { AVProperty::relate<Element, Form>(draft); }

private:
    static bool takeElement(T& taken, const Value& each, std::size_t position,
                            AVImporter& importer) {
        if constexpr (isFixed) {
            return AVProperty::take<Element, Form>(taken[position], each, importer);
        } else if constexpr (requires {
                                 { taken.emplace_back() } -> std::same_as<Element&>;
                             }) {
            return AVProperty::take<Element, Form>(taken.emplace_back(), each, importer);
        } else {
            Element element{};
            const bool isTaken = AVProperty::take<Element, Form>(element, each, importer);
            taken.insert(taken.end(), std::move(element));
            return isTaken;
        }
    }
};

} // namespace morvellacinto

/// Names the values of an enumeration, in its namespace: `AVJSON_NAMES(Colour, {Colour::red,
/// "red"}, {Colour::green, "green"})`.
#define AVJSON_NAMES(Enum, ...)                                                                    \
    [[maybe_unused]] inline std::span<const std::pair<Enum, std::string_view>> avNames(Enum) {     \
        static constexpr std::pair<Enum, std::string_view> names[]{__VA_ARGS__};                   \
        return names;                                                                              \
    }
