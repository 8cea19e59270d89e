#include "morvellacinto/audience/Version.h"

namespace morvellacinto {

const char MorvellacintoVersionString[] = "@(#)PROGRAM:Morvellacinto  PROJECT:Morvellacinto-1\n";
const double MorvellacintoVersionNumber = 1.0;

} // namespace morvellacinto
