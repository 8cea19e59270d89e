// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <string>
#include <string_view>

namespace morvellacinto {

/// The service's base URL as chosen by the build: https, path "/v5", no trailing slash.
MORVELLACINTO_EXPORT extern const std::string_view API_URL_PROD;

/// The version of the service protocol that the library speaks.
MORVELLACINTO_EXPORT extern const std::string_view API_VERSION;

/// Where the service is. Any thread.
namespace KRNetworkManager {

/// The base URL that the service has moved the library to (the setting "KRServiceURL"), exactly as
/// stored and of whatever kind, or else the platform's default, or else `API_URL_PROD`. Throws
/// std::logic_error when no platform is installed.
[[nodiscard]] MORVELLACINTO_EXPORT Value baseURL();

/// `API_URL_PROD`, after the log line "Fallback KRServiceURL ..." with the URL. Throws
/// std::logic_error when no platform is installed.
[[nodiscard]] MORVELLACINTO_EXPORT std::string fallbackBaseURL();

/// `API_VERSION`.
[[nodiscard]] MORVELLACINTO_EXPORT std::string apiVersion();

} // namespace KRNetworkManager
} // namespace morvellacinto
