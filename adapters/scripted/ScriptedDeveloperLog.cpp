// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedDeveloperLog.h"

#include <utility>

namespace morvellacinto::scripted {

// Ends the process when memory runs out: a lost line would let a test pass.
void ScriptedDeveloperLog::log(std::string_view text) noexcept {
    const std::lock_guard lock(mutex_);
    lines_.emplace_back(text);
}

std::vector<std::string> ScriptedDeveloperLog::takeLines() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
}

} // namespace morvellacinto::scripted
