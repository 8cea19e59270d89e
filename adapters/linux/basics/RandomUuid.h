#pragma once

#include "morvellacinto/foundation/Uuid.h"

namespace morvellacinto::native {

/// A random (version 4) identifier from the kernel's generator. Throws std::system_error when that
/// gives nothing.
[[nodiscard]] Uuid randomUuid();

} // namespace morvellacinto::native
