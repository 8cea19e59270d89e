// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/audience/KRAudienceManager.h"

namespace morvellacinto {

/// A host's completion as work in flight holds it, on any thread; null for none. The last reference
/// leaves its destruction to the main queue.
using HeldCompletion = std::shared_ptr<const KRAudienceManager::Completion>;

[[nodiscard]] HeldCompletion held(KRAudienceManager::Completion completion);

/// Destroys what the host gave for the main queue there; after a shutdown, here.
void releaseOnMainQueue(KRAudienceManager::Completion completion) noexcept;

} // namespace morvellacinto
