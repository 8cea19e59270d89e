// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/Version.h"

#include "morvellacinto/Version.h"

namespace morvellacinto {

const char MorvellacintoVersionString[] = "@(#)PROGRAM:Morvellacinto  PROJECT:Morvellacinto-1\n";
const double MorvellacintoVersionNumber = 1.0;

const char* versionText() noexcept { return MORVELLACINTO_VERSION_TEXT; }

} // namespace morvellacinto
