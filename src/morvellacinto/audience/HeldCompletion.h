#pragma once

#include "morvellacinto/audience/KRAudienceManager.h"

namespace morvellacinto {

/// A host's completion as work in flight holds it, on any thread; null for none. It is the host's:
/// the last reference leaves its destruction to the main queue, whose thread it belongs to. After a
/// shutdown it is destroyed where it is.
using HeldCompletion = std::shared_ptr<const KRAudienceManager::Completion>;

[[nodiscard]] HeldCompletion held(KRAudienceManager::Completion completion);

} // namespace morvellacinto
