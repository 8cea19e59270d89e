#pragma once

#include "morvellacinto/foundation/Date.h"
#include "morvellacinto/foundation/Export.h"

namespace morvellacinto::platform {

/// The current date; the only clock that the library reads.
class MORVELLACINTO_EXPORT Clock {
public:
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock();

    /// Any thread. The user may set the clock at any time, also back.
    [[nodiscard]] virtual Date now() const = 0;

protected:
    Clock() = default;
};

} // namespace morvellacinto::platform
