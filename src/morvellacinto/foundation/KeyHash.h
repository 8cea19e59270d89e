// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace morvellacinto {

/// SipHash-1-3 under a key drawn once a process, so that nobody who writes JSON can choose keys
/// that collide.
[[nodiscard]] std::uint64_t keyHash(std::string_view key) noexcept;

} // namespace morvellacinto
