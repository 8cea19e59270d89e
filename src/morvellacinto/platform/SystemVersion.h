#pragma once

#include "morvellacinto/foundation/Export.h"

namespace morvellacinto::platform {

/// The operating-system version test that decides which generation of a service is used.
class MORVELLACINTO_EXPORT SystemVersion {
public:
    SystemVersion(const SystemVersion&) = delete;
    SystemVersion& operator=(const SystemVersion&) = delete;
    virtual ~SystemVersion();

    /// Any thread. A version equal to the boundary counts.
    [[nodiscard]] virtual bool isAtLeast(int major, int minor) const = 0;

protected:
    SystemVersion() = default;
};

} // namespace morvellacinto::platform
