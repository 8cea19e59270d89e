// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Interface.h"

namespace morvellacinto::platform {

/// The operating-system version test that decides which generation of a service is used.
class MORVELLACINTO_EXPORT SystemVersion : public Interface {
public:
    /// Any thread. A version equal to the boundary counts.
    [[nodiscard]] virtual bool isAtLeast(int major, int minor) const = 0;
};

} // namespace morvellacinto::platform
