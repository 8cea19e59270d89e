// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/HttpSession.h"

namespace morvellacinto {

/// Answers every authentication challenge the same way: default handling, no credential. The
/// library thus neither pins certificates nor relaxes their checks. Stateless; any thread.
class MORVELLACINTO_EXPORT KRNetworkDelegate : public platform::HttpSessionDelegate {
public:
    /// The one instance of the process, made on the first call and never destroyed.
    [[nodiscard]] static KRNetworkDelegate& shared();

    /// Calls the handler once, at once; an empty handler is tolerated.
    void didReceiveChallenge(platform::HttpSession& session, platform::HttpTask& task,
                             const platform::HttpChallenge& challenge,
                             const platform::HttpChallengeAnswer& completionHandler) override;
};

} // namespace morvellacinto
