// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Interface.h"

#include <string_view>

namespace morvellacinto::platform {

/// The log that the host's developers read. The library writes nothing but its few fixed texts.
class MORVELLACINTO_EXPORT DeveloperLog : public Interface {
public:
    /// Writes one line; `text` holds no line break. Any thread. Never throws, as guards rely on.
    virtual void log(std::string_view text) noexcept = 0;
};

} // namespace morvellacinto::platform
