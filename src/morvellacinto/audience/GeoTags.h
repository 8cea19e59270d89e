#pragma once

#include "morvellacinto/audience/KRAudienceManager.h"

namespace morvellacinto {

void fetchGeoTags(const std::shared_ptr<AudienceSettings>& settings,
                  KRAudienceManager::Completion completion);

} // namespace morvellacinto
