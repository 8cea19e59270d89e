// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Object.h"

namespace morvellacinto::KRNetworkManager {

/// The description of the device and its surroundings that every upload starts from, built afresh:
/// 19 members, or, after the log line "payload failed", the first four ("locale", "system", "api",
/// "platform") when the platform raises a failure or gives no advertising identifier or no hardware
/// model. docs/data-inventory.md tells where each member comes from.
///
/// Blocks the calling thread, which may be any, while the platform is asked. Throws
/// std::runtime_error when the platform gives no locale identifier or system version, and
/// std::logic_error when none is installed.
[[nodiscard]] MORVELLACINTO_EXPORT Object basePayload();

} // namespace morvellacinto::KRNetworkManager
