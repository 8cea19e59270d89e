// SPDX-License-Identifier: MIT
#pragma once

#include <compare>

namespace morvellacinto {

/// A point in time: seconds since 1970-01-01T00:00:00Z, fractions and times before it included.
struct Date {
    double secondsSinceReference = 0;

    /// Seconds from `earlier` to `later`; negative when `later` comes first.
    [[nodiscard]] static constexpr double secondsBetween(Date earlier, Date later) noexcept {
        return later.secondsSinceReference - earlier.secondsSinceReference;
    }

    friend constexpr auto operator<=>(Date, Date) noexcept = default;
};

} // namespace morvellacinto
