// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/audience/KRAudienceManager.h"

namespace morvellacinto {

// What the settings store keeps of the service's last answer.
inline constexpr std::string_view lastUpdateKey = "KRAudienceUpdate";
inline constexpr std::string_view lastAnswerKey = "KRAudiences";
inline constexpr std::string_view serviceUrlKey = "KRServiceURL";

/// The "tags" or "mapping" of the answer in the settings store.
[[nodiscard]] std::optional<Value> cachedMember(KRTagsType type);

} // namespace morvellacinto
