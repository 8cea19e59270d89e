#pragma once

#include "morvellacinto/foundation/Value.h"
#include "morvellacinto/jsonmapping/AVClass.h"

#include <optional>
#include <string_view>

namespace morvellacinto {

/// What guards of imports and exports log.
inline constexpr std::string_view initFailed = "dict init failed";

/// The JSON key that stands for a property of another name unless a class says otherwise.
inline constexpr std::string_view sourceKey = "id";
inline constexpr std::string_view exceptionKey = "ident";

/// The mappable object that a value holds, or null.
[[nodiscard]] AVObject* mappableObject(const Value& value) noexcept;

/// Key-value look-up in a JSON object: nothing when it has no such member, and for a key that
/// begins with "@" what the object says of itself. Throws std::out_of_range for one of those other
/// than "@count".
[[nodiscard]] std::optional<Value> valueForKey(const Object& dictionary, std::string_view key);

/// Sets a property of `object`, to nothing when `value` is null. Throws as `AVObject::setValue`.
void setValue(AVObject& object, const Value* value, std::string_view name);
/// The same for the property or reader `member` of the object's class.
void setValue(AVObject& object, const Value* value, const AVMember& member);

} // namespace morvellacinto
