#pragma once

#include "morvellacinto/platform/DeveloperLog.h"

#include <functional>
#include <string_view>

namespace morvellacinto::native {

/// Hands each line to a function of the host, or writes it to standard error without one.
class NativeDeveloperLog final : public platform::DeveloperLog {
public:
    explicit NativeDeveloperLog(std::function<void(std::string_view)> write);

    void log(std::string_view text) noexcept override;

private:
    const std::function<void(std::string_view)> write_;
};

} // namespace morvellacinto::native
