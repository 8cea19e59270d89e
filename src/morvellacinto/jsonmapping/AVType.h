// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"
#include "morvellacinto/jsonmapping/AVExporter.h"
#include "morvellacinto/jsonmapping/AVImporter.h"
#include "morvellacinto/jsonmapping/AVObject.h"

#include <algorithm>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace morvellacinto {

/// How a property of type `T` is filled and exported. `AVTypes.h` has those of the library; a host
/// adds a type of its own with three functions, `std::string wanted()`,
/// `std::optional<T> take(const Value&)` and `Value give(const T&)`, all static.
///
/// `take` gives nothing for what `T` cannot hold; `wanted` says what it can. Without `take` a type
/// can only be read. A type that holds others has `bool take(T& held, const Value&, AVImporter&)`,
/// which leaves `held` as it was where it fails, and gives with an `AVExporter&` besides.
/// `encoding` is its part of attribute texts, "@" without one. `Form` is one of several ways to
/// write the same type, such as `AVText`.
template <class T, class Form = void>
struct AVType {
    static_assert(sizeof(T) == 0, "no property can have this type: it has no AVType, or it derives "
                                  "from AVObject and is held by Ref");
};

/// The form of points in time that exports them as text.
struct AVText {};

/// A class or struct with an `AVJSON_CLASS` of its own.
template <class T>
concept AVDescribed = requires {
    requires std::same_as<T, typename T::AVSelf>;
};

/// A described class that is mapped by value.
template <class T>
concept AVStruct = AVDescribed<T> && !std::derived_from<T, AVObject>;

/// The operations of a type, whichever of their shapes it has.
namespace AVProperty {

template <class T, class Form = void>
bool take(T& held, const Value& value, AVImporter& importer) {
    if constexpr (requires { AVType<T, Form>::take(held, value, importer); }) {
        return AVType<T, Form>::take(held, value, importer);
    } else if (std::optional<T> taken = AVType<T, Form>::take(value)) {
        held = *std::move(taken);
        return true;
    } else {
        return importer.refuse(value, AVType<T, Form>::wanted());
    }
}

/// The same, where there may be no value.
template <class T, class Form = void>
bool set(T& held, const Value* value, AVImporter& importer) {
    if (value != nullptr) {
        return take<T, Form>(held, *value, importer);
    }
    if constexpr (requires { held.reset(); }) {
        held.reset();
        return true;
    } else {
        return take<T, Form>(held, Value(), importer);
    }
}

/// The object or array that a value is. Null, with the reason left in the importer, if it is none.
template <class Json>
const Json* jsonIn(const Value& value, AVImporter& importer) {
    const Json* found = nullptr;
    if constexpr (std::same_as<Json, Object>) {
        found = value.ifObject();
    } else {
        found = value.ifArray();
    }
    if (found == nullptr) {
        importer.refuse(value, std::same_as<Json, Object> ? "an object" : "an array");
    }
    return found;
}

template <class T, class Form = void>
std::optional<Value> give(const T& held, AVExporter& exporter) {
    if constexpr (requires { AVType<T, Form>::give(held, exporter); }) {
        return AVType<T, Form>::give(held, exporter);
    } else {
        return AVType<T, Form>::give(held);
    }
}

template <class T, class Form>
std::string encoding() {
    if constexpr (requires { AVType<T, Form>::encoding(); }) {
        return AVType<T, Form>::encoding();
    } else {
        return "@";
    }
}

/// Tells a draft which classes a type leads to.
template <class T, class Form>
void relate(AVClassDraft& draft) {
    if constexpr (requires { AVType<T, Form>::relate(draft); }) {
        AVType<T, Form>::relate(draft);
    }
}

/// Whether elements of this type are objects also where others are left out of a prescribed export.
template <class T, class Form>
inline constexpr bool isNode = requires {
    requires AVType<T, Form>::isNode;
};

} // namespace AVProperty

} // namespace morvellacinto
