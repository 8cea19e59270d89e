// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"

#include <cstdint>

namespace morvellacinto {

/// `value` rounded to `n` decimals, halves away from zero, in single precision throughout.
///
/// The multiplier is 10 to the power of `n` modulo 2^32, read as a signed integer: from 10 decimals
/// on it has wrapped, and from 32 on it is 0, which gives not-a-number. Constant time for every
/// `n`.
[[nodiscard]] MORVELLACINTO_EXPORT float roundToN(float value, std::uint32_t n) noexcept;

} // namespace morvellacinto
