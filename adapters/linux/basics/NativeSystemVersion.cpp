#include "NativeSystemVersion.h"

#include <utility>

namespace morvellacinto::native {

namespace {
constexpr std::pair generation(14, 0);
}

bool NativeSystemVersion::isAtLeast(int major, int minor) const {
    return generation >= std::pair(major, minor);
}

} // namespace morvellacinto::native
