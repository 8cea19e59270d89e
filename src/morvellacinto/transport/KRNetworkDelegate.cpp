// SPDX-License-Identifier: MIT
#include "morvellacinto/transport/KRNetworkDelegate.h"

namespace morvellacinto {

KRNetworkDelegate& KRNetworkDelegate::shared() {
    static auto* const instance = new KRNetworkDelegate;
    return *instance;
}

void KRNetworkDelegate::didReceiveChallenge(
    platform::HttpSession& /*session*/, platform::HttpTask& /*task*/,
    const platform::HttpChallenge& /*challenge*/,
    const platform::HttpChallengeAnswer& completionHandler) {
    if (completionHandler) {
        completionHandler(platform::HttpChallengeDisposition::performDefaultHandling, std::nullopt);
    }
}

} // namespace morvellacinto
