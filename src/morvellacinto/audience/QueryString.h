// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Object.h"

#include <string>

namespace morvellacinto {

[[nodiscard]] std::string queryString(const Object& tags);

} // namespace morvellacinto
