// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedDiagnostics.h"

#include <utility>

namespace morvellacinto::scripted {

ScriptedDiagnostics::ScriptedDiagnostics() = default;

// Ends the process when memory runs out: a lost record would let a test pass.
void ScriptedDiagnostics::tell(const platform::Diagnostic& diagnostic) noexcept {
    const std::lock_guard lock(mutex_);
    records_.push_back(diagnostic);
}

std::vector<platform::Diagnostic> ScriptedDiagnostics::takeRecords() {
    const std::lock_guard lock(mutex_);
    return std::exchange(records_, {});
}

} // namespace morvellacinto::scripted
