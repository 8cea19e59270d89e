// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Object.h"
#include "morvellacinto/scripted/PhoneScript.h"

namespace morvellacinto::host {

/// Reads the members of a phone file; those that are missing keep their defaults.
///
/// Null stands for no answer; where a service always answers, it gives what the platform says
/// when it does not know: battery level -1, status 0, false, full accuracy. A fix needs
/// latitude and longitude, a Wi-Fi interface its name, an error both of its members. Throws
/// std::invalid_argument with the member's path, such as "location.fixes[0].latitude", what
/// stands there and what was expected; a member of another name is refused too.
[[nodiscard]] scripted::PhoneScript readPhone(const Object& file);

} // namespace morvellacinto::host
