// SPDX-License-Identifier: MIT
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

} // namespace morvellacinto::host
