// SPDX-License-Identifier: MIT
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

/// Key-value look-up in a JSON object: nothing when it has no such member, and for a key that
/// begins with "@" what the object says of itself. Throws std::out_of_range for one of those other
/// than "@count".
[[nodiscard]] std::optional<Value> valueForKey(const Object& dictionary, std::string_view key);

/// The property of that name. Throws std::out_of_range when there is none that can be set.
const AVMember& propertyNamed(const AVClass& described, std::string_view name);

} // namespace morvellacinto
