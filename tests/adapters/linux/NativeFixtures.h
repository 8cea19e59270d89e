// SPDX-License-Identifier: MIT
#pragma once

#include "support/TemporaryDirectory.h"

#include <morvellacinto/native/NativePlatform.h>

#include <poll.h>

namespace morvellacinto::native {

/// More than anything here takes on the busiest machine.
inline constexpr std::chrono::seconds generous(30);

using testing::TemporaryDirectory;

/// Drives the main queue, or the platform's, as a host's loop does, until `done` holds.
template <class Loop>
bool pumpUntil(Loop& loop, const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + generous;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        // `done` may come true without a block: look again soon.
        pollfd wanted{loop.descriptor(), POLLIN, 0};
        if (poll(&wanted, 1, 1) == 1) {
            loop.drain();
        }
    }
    return true;
}

} // namespace morvellacinto::native
