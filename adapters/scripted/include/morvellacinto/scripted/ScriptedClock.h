// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Clock.h"

#include <chrono>
#include <functional>
#include <map>
#include <mutex>

namespace morvellacinto::scripted {

/// A clock that stands still until the test moves it, with blocks that wait for their time.
class MORVELLACINTO_EXPORT ScriptedClock final : public platform::Clock {
public:
    using Duration = std::chrono::duration<double>; ///< seconds
    using Block = std::function<void()>;            ///< runs in `advance`

    /// 2026-01-01T00:00:00Z.
    static constexpr Date firstDate{1'767'225'600};

    [[nodiscard]] Date now() const override;

    /// Lets time pass: runs the scheduled blocks that come due, on this thread and in the order of
    /// their time, each at its own moment. Throws std::invalid_argument for a negative duration.
    void advance(Duration duration);

    /// Sets the date as a user would, forward or back. No time passes: no block comes due.
    void set(Date date);

    /// Runs `block` in the `advance` that reaches the end of `delay`. Any thread.
    void schedule(Duration delay, Block block);

    /// Drops the scheduled blocks, and later ones as they come.
    void shutdown();

private:
    Block takeDue(Duration end);

    mutable std::mutex mutex_;
    Date date_ = firstDate;
    Duration elapsed_{0}; // never set back, unlike the date
    std::multimap<Duration, Block> scheduled_;
    bool isShutDown_ = false;
};

} // namespace morvellacinto::scripted
