// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace morvellacinto::native {

/// The domain of each error that a location update of this adapter ends with.
inline constexpr std::string_view locationErrorDomain = "morvellacinto.location";

/// What `KRError::code` holds in that domain. The numbers are stable.
enum class LocationErrorCode : std::int64_t {
    unavailable = 1, ///< no system bus, no location service on it, or no bundle identifier
    denied = 2,      ///< the user or the system's configuration refuses
    timedOut = 3,    ///< no fix came in time, or the service did not answer
    lost = 4,        ///< the service or the bus went away while updates ran
    other = 99,
};

} // namespace morvellacinto::native
