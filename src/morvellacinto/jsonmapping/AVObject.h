// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"
#include "morvellacinto/jsonmapping/NodeMapping.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace morvellacinto {

template <class T>
class AVDescription;

/// The base class of objects that fill themselves from JSON objects and export themselves back.
///
/// A class says what it has with `AVJSON_CLASS` and may override the operations that are virtual;
/// the object at hand is always the one that is asked. Objects live on the heap and are shared by
/// `Ref`: make them with `makeInstance<Station>()`. The mapping takes no lock: importing needs the
/// object for itself, exporting only reads.
///
/// Importing and exporting throw std::logic_error when no platform is installed.
class MORVELLACINTO_EXPORT AVObject : public Instance {
public:
    /// What `AVJSON_CLASS` says of other classes. @{
    using AVSelf = AVObject;
    using AVBase = void;
    static constexpr std::string_view avClassName() { return "AVObject"; }
    static void avDescribe(AVDescription<AVObject>&) {} ///@}

    AVObject() noexcept = default;
    ~AVObject() override;

    [[nodiscard]] AVObject* mappable() noexcept final { return this; }
    /// The class that the nearest `AVJSON_CLASS` describes.
    [[nodiscard]] virtual const AVClass& avClass() const;

    /// Fills this object from a JSON object, key by key in its order.
    ///
    /// A JSON object under a key of `nodeMapping` is converted as `AVJSON::asObjectOfClass` tells
    /// and set, whether or not there is such a property; of an array the converted elements are
    /// set, unless it is empty; anything else is ignored.
    ///
    /// Under any other key null is ignored, and so is a key that this object does not answer. A
    /// string under a key that `isNumberProperty` affirms becomes what `numberFromText` finds, and
    /// is ignored when that is nothing. A key that begins with "@" asks the JSON object itself:
    /// "@count" is the number of its members, and others fail.
    ///
    /// A value that the property cannot hold leaves it as it was. Any other failure ends the import
    /// of this object: "dict init failed" is logged, what was set stays set, and the object around
    /// it goes on with its next key. The platform's diagnostics are told of both.
    void setAvValuesForKeysWithDictionary(Object dictionary, const NodeMapping& nodeMapping = {});

    /// This object as a JSON object, with the keys given in their order.
    ///
    /// Instances become JSON objects of their own `keysForExport`, and so do the elements of
    /// arrays: one that is no mappable object becomes an empty JSON object. Empty arrays and
    /// properties that hold nothing are left out. A key that this object does not answer is logged,
    /// "%@ missing in %@ while export" with the key and the `description`. One that fails ends the
    /// export of this object: "dict init failed" is logged, and what was exported so far is given;
    /// so do an object that is met again inside itself and more than `maximumJsonDepth` levels.
    [[nodiscard]] Object avDictionaryWithValuesForKeys(const std::vector<std::string>& keys) const;

    /// The property that a JSON key is set on. By default the key, with one exception: "ident" for
    /// "id".
    [[nodiscard]] virtual std::string keyExceptionForSourceKey(std::string_view key) const;
    /// The JSON key that a property is exported under. By default its name; also for "ident".
    [[nodiscard]] virtual std::string sourceKeyForExceptionKey(std::string_view name) const;
    /// Whether strings under this JSON key are converted to numbers. By default when a property of
    /// exactly that name has "NSNumber" in its attribute text.
    [[nodiscard]] virtual bool isNumberProperty(std::string_view key) const;
    /// What to export of this object where a property holds it, as strings; by default nothing.
    [[nodiscard]] virtual Array keysForExport() const;
    /// How the developer log names this object; by default by its class. On one line.
    [[nodiscard]] virtual std::string description() const;

    /// Whether there is a property or reader of that name.
    [[nodiscard]] bool answers(TextArgument name) const;
    /// The value of a property or reader, or nothing when it holds none. Throws std::out_of_range
    /// when there is no such name.
    [[nodiscard]] std::optional<Value> valueForKey(TextArgument name) const;
    /// Follows names joined by "." through mappable objects, JSON objects and arrays, which give an
    /// array of what each element gives, null for nothing. Nothing when a value on the way holds
    /// nothing or is missing in a JSON object; throws std::out_of_range for a name that a value
    /// does not know.
    [[nodiscard]] std::optional<Value> valueForKeyPath(TextArgument path) const;
    /// Sets a property, as an import does, or sets it to nothing. Throws std::out_of_range when
    /// there is none of that name that can be set, and ValueKindError, keeping the old value, when
    /// it refuses the value; `AVType` tells which.
    void setValue(const std::optional<Value>& value, TextArgument name);
};

/// The mappable object that a value holds, or null.
[[nodiscard]] inline AVObject* mappableObject(const Value& value) {
    return value.kind() == Value::Kind::instance ? value.asInstance().mappable() : nullptr;
}

} // namespace morvellacinto
