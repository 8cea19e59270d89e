// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/TextArgument.h"
#include "morvellacinto/foundation/Value.h"

#include <optional>
#include <string>

namespace morvellacinto {

/// The library's few persistent values, kept in the platform's persistent defaults under keys that
/// all begin with "se.kovra.v5.", away from the host's own. Any thread; every operation that
/// touches the store throws std::logic_error when no platform is installed.
///
/// A value is anything the persistent defaults can hold: a string, number, boolean, date, bytes, or
/// an array or object of such. An absent key reads and removes what stands under the prefix
/// followed by "(null)".
namespace KRSettingsManager {

/// The key as the persistent defaults see it: the prefix followed directly by `key`.
[[nodiscard]] MORVELLACINTO_EXPORT std::string fullKey(OptionalText key);

/// Stores and flushes; true when the value is durable. False, with the earlier value kept, for an
/// absent value or key and for null; false also when the flush fails (the new value is then
/// readable in this process) and, after the log line "storing failed", when the platform raises a
/// failure, such as for a value that holds null or an instance.
MORVELLACINTO_EXPORT bool setLocalSetting(std::optional<Value> setting, OptionalText key);

/// Removes and flushes; true when nothing is left under the key. False when the flush fails: the
/// removal is then pending for the next flush of anything, and removing the same key again finds
/// nothing and gives true without a flush. A failure that the platform raises is logged as
/// "removing failed" and also gives true.
MORVELLACINTO_EXPORT bool removeLocalSettingForKey(OptionalText key);

/// The stored value of whatever kind, or nothing. What the platform raises reaches the caller.
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<Value> localSettingForKey(OptionalText key);

} // namespace KRSettingsManager
} // namespace morvellacinto
