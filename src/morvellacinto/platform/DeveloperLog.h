#pragma once

#include "morvellacinto/foundation/Export.h"

#include <string_view>

namespace morvellacinto::platform {

/// The log that the host's developers read. The library writes nothing but its few fixed texts.
class MORVELLACINTO_EXPORT DeveloperLog {
public:
    DeveloperLog(const DeveloperLog&) = delete;
    DeveloperLog& operator=(const DeveloperLog&) = delete;
    virtual ~DeveloperLog();

    /// Writes one line; `text` holds no line break. Any thread. Never throws: guards call it while
    /// they handle a failure.
    virtual void log(std::string_view text) noexcept = 0;

protected:
    DeveloperLog() = default;
};

} // namespace morvellacinto::platform
