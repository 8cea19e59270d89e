// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/DeveloperLog.h"

#include <mutex>
#include <string>
#include <vector>

namespace morvellacinto::scripted {

/// Keeps the lines for the test to compare whole.
class MORVELLACINTO_EXPORT ScriptedDeveloperLog final : public platform::DeveloperLog {
public:
    void log(std::string_view text) noexcept override;

    /// The lines since the last call, oldest first. Any thread.
    [[nodiscard]] std::vector<std::string> takeLines();

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

} // namespace morvellacinto::scripted
