// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"

namespace morvellacinto::platform {

/// What all of the platform's interfaces are: implemented elsewhere, and never copied.
class MORVELLACINTO_EXPORT Interface {
public:
    Interface(const Interface&) = delete;
    Interface& operator=(const Interface&) = delete;
    virtual ~Interface();

protected:
    Interface() = default;
};

} // namespace morvellacinto::platform
