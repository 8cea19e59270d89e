// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/audience/HeldCompletion.h"

namespace morvellacinto {

void collectAudience(const AudienceSettings& settings, Object& payload,
                     KRAudienceManager::Completion completion, bool force);

/// The body of the request that it would make.
[[nodiscard]] std::string uploadText(const AudienceSettings& settings, Object payload);

} // namespace morvellacinto
