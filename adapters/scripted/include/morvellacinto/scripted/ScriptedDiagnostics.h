// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Diagnostics.h"

#include <mutex>
#include <vector>

namespace morvellacinto::scripted {

/// Keeps the records for the test to look at.
class MORVELLACINTO_EXPORT ScriptedDiagnostics final : public platform::Diagnostics {
public:
    ScriptedDiagnostics();

    void tell(const platform::Diagnostic& diagnostic) noexcept override;

    /// Before the phone is installed: routine records are kept too.
    void keepRoutine() noexcept { isRoutineKept_ = true; }
    [[nodiscard]] bool wantsRoutine() const noexcept override { return isRoutineKept_; }

    /// The records since the last call, oldest first. Any thread.
    [[nodiscard]] std::vector<platform::Diagnostic> takeRecords();

private:
    bool isRoutineKept_ = false;
    std::mutex mutex_;
    std::vector<platform::Diagnostic> records_;
};

} // namespace morvellacinto::scripted
