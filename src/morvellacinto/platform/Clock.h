// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Date.h"
#include "morvellacinto/platform/Interface.h"

namespace morvellacinto::platform {

/// The current date; the only clock that the library reads.
class MORVELLACINTO_EXPORT Clock : public Interface {
public:
    /// Any thread. The user may set the clock at any time, also back.
    [[nodiscard]] virtual Date now() const = 0;
};

} // namespace morvellacinto::platform
