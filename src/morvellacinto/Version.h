// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"

/// The version that a host is compiled with, by the rules of semantic versioning. @{
#define MORVELLACINTO_VERSION_MAJOR 1
#define MORVELLACINTO_VERSION_MINOR 0
#define MORVELLACINTO_VERSION_PATCH 0
/// @}

/// The same in one number to compare, 10203 for 1.2.3.
#define MORVELLACINTO_VERSION                                                                      \
    (MORVELLACINTO_VERSION_MAJOR * 10000 + MORVELLACINTO_VERSION_MINOR * 100 +                     \
     MORVELLACINTO_VERSION_PATCH)

namespace morvellacinto {

/// The version of the library that runs, such as "1.2.3".
[[nodiscard]] MORVELLACINTO_EXPORT const char* versionText() noexcept;

} // namespace morvellacinto
