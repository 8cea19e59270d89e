#pragma once

#include "support/TemporaryDirectory.h"

#include <morvellacinto/native/NativePlatform.h>

#include <chrono>
#include <functional>
#include <memory>
#include <poll.h>
#include <string>

namespace morvellacinto::native {

/// More than anything here takes on the busiest machine.
inline constexpr std::chrono::seconds generous(30);

using testing::TemporaryDirectory;

/// Drives the platform's main queue as a host's loop does, until `done` holds.
inline bool pumpUntil(NativePlatform& platform, const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + generous;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        // `done` may come true without a block: look again soon.
        pollfd wanted{platform.descriptor(), POLLIN, 0};
        if (poll(&wanted, 1, 1) == 1) {
            platform.drain();
        }
    }
    return true;
}

} // namespace morvellacinto::native
