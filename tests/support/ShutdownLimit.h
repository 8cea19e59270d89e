// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace morvellacinto::testing {

/// The promise is 250 ms; a busy machine gets more, and yet far less than every time-out.
inline constexpr std::chrono::milliseconds shutdownLimit(3000);

} // namespace morvellacinto::testing
