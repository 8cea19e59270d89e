#pragma once

/// JSON trees to objects of the host's classes and back: `AVJSON_CLASS` describes a class,
/// `AVObject` is its base, `NodeMapping` says where in the tree its objects stand.
#include "morvellacinto/jsonmapping/AVDescription.h"
#include "morvellacinto/jsonmapping/AVObject.h"
#include "morvellacinto/jsonmapping/NodeMapping.h"

#include <optional>
#include <string>

namespace morvellacinto::AVJSON {

/// The object that a JSON object is turned into: a new instance of the class, or the existing
/// object, filled as `AVObject::setAvValuesForKeysWithDictionary` tells. Empty when the class's
/// name is unknown. Throws std::logic_error when the class has no default constructor, or when no
/// platform is installed.
[[nodiscard]] MORVELLACINTO_EXPORT Ref<AVObject>
asObjectOfClass(const Object& dictionary, const NodeClass& nodeClass,
                const NodeMapping& nodeMapping = {});

/// An array of what each element is turned into, in order: JSON objects as above, arrays likewise.
/// An existing object is filled by one element after the other and stands in the result once for
/// each. Throws ValueKindError for an element of another kind, std::invalid_argument for an unknown
/// class, std::length_error beyond `maximumJsonDepth` levels, and what the conversion of a JSON
/// object throws.
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
