#include "NativeDeveloperLog.h"

#include "StandardError.h"

#include <utility>

namespace morvellacinto::native {

NativeDeveloperLog::NativeDeveloperLog(std::function<void(std::string_view)> write)
    : write_(std::move(write)) {}

void NativeDeveloperLog::log(std::string_view text) noexcept {
    if (write_ == nullptr) {
        writeLineToStandardError("", text);
        return;
    }
    try {
        write_(text);
    } catch (...) {
        // The log is where failures are told; one of its own has nowhere to go.
    }
}

} // namespace morvellacinto::native
