// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace morvellacinto::service {

/// `bytes` in the gzip format. Throws std::runtime_error when zlib refuses.
[[nodiscard]] std::string gzip(std::string bytes);

} // namespace morvellacinto::service
