// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"

namespace morvellacinto {

extern "C" {

/// "@(#)PROGRAM:Morvellacinto  PROJECT:Morvellacinto-1\n", zero-terminated.
MORVELLACINTO_EXPORT extern const char MorvellacintoVersionString[];

MORVELLACINTO_EXPORT extern const double MorvellacintoVersionNumber; ///< 1.0
}

} // namespace morvellacinto
