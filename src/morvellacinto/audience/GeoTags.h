// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/audience/HeldCompletion.h"

namespace morvellacinto {

void fetchGeoTags(const std::shared_ptr<AudienceSettings>& settings,
                  const HeldCompletion& completion);

} // namespace morvellacinto
