#pragma once

#include <string_view>

namespace morvellacinto::native {

/// Writes one line to standard error in one piece. Never throws, and raises no SIGPIPE when nobody
/// reads it any more.
void writeLineToStandardError(std::string_view prefix, std::string_view text) noexcept;

} // namespace morvellacinto::native
