// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Object.h"

#include <cstdint>
#include <string>

namespace morvellacinto {

/// An error record as callbacks deliver it. The library makes one kind itself (domain
/// "se.kovra.error", code 0, no information: location permission is missing); every other comes
/// from the platform unchanged.
struct KRError {
    /// Keys of `userInfo` that transport errors carry: the URL that failed, or text that was none,
    /// without user, password, query and fragment; and one readable sentence. Neither ever holds
    /// the API token or a coordinate.
    static constexpr std::string_view urlKey = "url";
    static constexpr std::string_view messageKey = "message";

    std::string domain;
    std::int64_t code = 0;
    Object userInfo;

    friend bool operator==(const KRError&, const KRError&) = default;
};

} // namespace morvellacinto
