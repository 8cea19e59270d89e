// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Interface.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace morvellacinto::platform {

/// What the default assertion handler throws; `what()` tells the description and the place.
class MORVELLACINTO_EXPORT AssertionFailure : public std::logic_error {
public:
    using std::logic_error::logic_error;
    ~AssertionFailure() override;
};

/// Receives failed assertions of the library about how the host calls it.
class MORVELLACINTO_EXPORT AssertionHandler : public Interface {
public:
    /// Called on the thread that failed the assertion, which goes on when this returns. The default
    /// throws AssertionFailure.
    virtual void handleFailureInFunction(std::string_view function, std::string_view file, int line,
                                         std::string_view description);
};

} // namespace morvellacinto::platform
