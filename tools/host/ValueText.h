#pragma once

#include "morvellacinto/foundation/Value.h"

#include <string>
#include <string_view>

namespace morvellacinto::host {

/// ISO 8601 in UTC with milliseconds, such as "2026-01-31T12:00:00.000Z"; for years 0 to 9999, else
/// the seconds since 1970.
[[nodiscard]] std::string dateText(Date date);

/// One line of JSON; a date, at any depth, stands as {"date": "..."}. Throws JsonWriteError.
[[nodiscard]] std::string valueText(const Value& value);

/// The JSON value that `text`, an argument or a file's content named `source`, holds; may be a
/// scalar. Throws UsageError.
[[nodiscard]] Value readValue(std::string_view text, const std::string& source);

/// The content of a file, or of standard input for "-". Throws UsageError.
[[nodiscard]] std::string readFile(const std::string& path);

/// The JSON object in a file. Throws UsageError.
[[nodiscard]] Object readObject(const std::string& path);

} // namespace morvellacinto::host
