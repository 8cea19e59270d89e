#pragma once

#include "morvellacinto/audience/HeldCompletion.h"

namespace morvellacinto {

void collectAudience(const AudienceSettings& settings, Object& payload,
                     KRAudienceManager::Completion completion, bool force);

} // namespace morvellacinto
