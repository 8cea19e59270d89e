// SPDX-License-Identifier: MIT
#pragma once

/// JSON trees to objects of the host's classes and back: `AVJSON_CLASS` describes a class, whose
/// objects are structs held by value or, with `AVObject` as their base, shared by `Ref`.
#include "morvellacinto/jsonmapping/AVDescription.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/NodeMapping.h"

#include <optional>
#include <string>

namespace morvellacinto::AVJSON {

/// What is made of JSON for a class: a `Ref` to it when it derives from `AVObject`.
template <class T>
using Held = std::conditional_t<std::derived_from<T, AVObject>, Ref<T>, T>;

/// JSON as a described class, or as any other type that a property can have, such as
/// `std::vector<Stop>`. What a member cannot take leaves it as the constructor made it and is told:
/// to `problems`, or to the diagnostics of the platform, if there is one. Throws ValueKindError
/// when the type cannot take `json` itself.
template <class T>
[[nodiscard]] Held<T> as(const Value& json, AVProblems* problems = nullptr) {
    const Value kept = json; // a setter may change the host's own
    AVImporter importer(problems);
    Held<T> held{};
    if (!AVProperty::take(held, kept, importer)) {
        const platform::ValueSkipped refused = importer.refused("", "");
        throw ValueKindError("JSON is no " + std::string(avQualifiedName<T>()) + ": it takes " +
                             refused.wanted + ", not " + refused.found);
    }
    return held;
}

/// Fills an object that is there, likewise.
template <AVDescribed T>
void fill(T& object, const Object& json, AVProblems* problems = nullptr) {
    const Object kept = json;
    AVImporter importer(problems);
    if constexpr (std::derived_from<T, AVObject>) {
        importer.fill(object, kept);
    } else {
        importer.fill(&object, AVClass::of<T>(), kept);
    }
}

/// The JSON of an object, or of any other type that a property can have: all that its class has
/// described, in that order, or its `keysForExport` if there are any. What holds nothing is left
/// out. Throws what a reader throws, std::invalid_argument for an object inside itself and
/// std::length_error beyond `maximumJsonDepth` levels. Needs no platform.
template <class T>
[[nodiscard]] Value from(const T& object) {
    AVExporter exporter(AVExporter::Mode::natural);
    if constexpr (std::derived_from<T, AVObject>) {
        return exporter.exported(object);
    } else {
        return AVProperty::give(object, exporter).value_or(Value());
    }
}

/// The object that a JSON object is turned into: a new instance of the class, or the existing
/// object, filled as `AVObject::setAvValuesForKeysWithDictionary` tells. Empty when the class's
/// name is unknown. Throws std::logic_error when the class has no default constructor, or when no
/// platform is installed.
[[nodiscard]] MORVELLACINTO_EXPORT Ref<AVObject>
asObjectOfClass(const Object& dictionary, const NodeClass& nodeClass,
                const NodeMapping& nodeMapping = {});

/// What each element is turned into, in order: JSON objects as above, arrays likewise. Throws
/// ValueKindError for an element of another kind, std::invalid_argument for an unknown class,
/// std::length_error beyond `maximumJsonDepth` levels, and what the conversion of a JSON object
/// throws.
[[nodiscard]] MORVELLACINTO_EXPORT Array asObjectOfClass(const Array& array,
                                                         const NodeClass& nodeClass,
                                                         const NodeMapping& nodeMapping = {});

/// A new instance of `T`, filled.
template <class T>
[[nodiscard]] Ref<T> asObjectOfClass(const Object& dictionary,
                                     const NodeMapping& nodeMapping = {}) {
    return Ref<T>(
        static_cast<T*>(asObjectOfClass(dictionary, AVClass::of<T>(), nodeMapping).get()));
}

/// Compact JSON of an object or array, as UTF-8 bytes, members in their order. Nothing for text
/// that is not valid UTF-8; throws JsonWriteError for every other value that JSON cannot hold.
/// Needs no platform.
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<std::string> toJSON(const Value& collection);

/// The same as text.
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<std::string> toJSONWS(const Value& collection);

} // namespace morvellacinto::AVJSON
