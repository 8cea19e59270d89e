#include "morvellacinto/Version.h"

namespace morvellacinto {

const char* versionText() noexcept { return MORVELLACINTO_VERSION_TEXT; }

} // namespace morvellacinto
