// SPDX-License-Identifier: MIT
#pragma once

#include "CurlUrl.h"

#include "morvellacinto/platform/HttpSession.h"

#include <string>

namespace morvellacinto::native {

inline constexpr int maximumRedirects = 20;

/// One hop of a request: where it goes and what goes with it.
/// Only https, and plain http to loopback addresses, are ever opened. The request's body and its
/// own headers stay within the origin they were meant for, and what was once left behind does not
/// come back. A URL with a user name or password is refused: this adapter has no credentials to
/// give.
struct Hop {
    CurlUrl url;
    std::string method;
    bool carriesBody;
    bool carriesOwnHeaders = true;
    bool mayBePlain; ///< the request began on a loopback address
    int redirects = 0;
};

/// Throws HttpFailure for a request that must not or cannot be sent.
[[nodiscard]] Hop firstHop(const platform::HttpRequest& request);

/// Whether an answer of `status` that names another place is to be followed.
[[nodiscard]] bool isRedirect(long status) noexcept;

/// The hop to where such an answer points. Throws HttpFailure when it must not be followed.
[[nodiscard]] Hop nextHop(const Hop& hop, long status, const std::string& location);

} // namespace morvellacinto::native
