// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/foundation/Value.h"

#include <functional>
#include <optional>

namespace morvellacinto {

class KRRequest;

namespace KRNetworkManager {

/// Takes the parsed answer, which is the callback's own to change, or nothing.
using SuccessCallback = std::function<void(std::optional<Value> answer)>;
/// Takes what kept the answer away.
using ErrorCallback = std::function<void(const KRError& error)>;

/// Makes the request and returns at once. One of the callbacks, either of which may be empty, is
/// called later, once, on a background thread of the platform's:
/// - `error` with the platform's error when the transfer failed (network, DNS, TLS, an absent URL,
///   10 seconds from start to last byte exceeded);
/// - else `success` with the answer, an object or an array, or nothing when the body is no JSON;
///   the HTTP status plays no role. A failed transfer without `error` calls `success` with nothing.
/// A request of a type other than get and post calls neither.
///
/// A post carries its payload, or the body {"bundle": "se.kovra.no-bundle"} when it has none, and
/// the token in the header API_TOKEN when it has one; a get carries neither. Throws
/// std::logic_error when no platform is installed. Any thread.
MORVELLACINTO_EXPORT void request(const KRRequest& request, SuccessCallback success,
                                  ErrorCallback error);

} // namespace KRNetworkManager
} // namespace morvellacinto
