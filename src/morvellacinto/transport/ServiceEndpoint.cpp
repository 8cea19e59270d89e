// SPDX-License-Identifier: MIT
#include "morvellacinto/transport/ServiceEndpoint.h"

#include "morvellacinto/platform/DeveloperLog.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/settings/KRSettingsManager.h"

namespace morvellacinto {

const std::string_view API_URL_PROD = MORVELLACINTO_API_URL_PROD;
const std::string_view API_VERSION = "3.0.7";

namespace KRNetworkManager {

Value baseURL() {
    std::optional<Value> moved = KRSettingsManager::localSettingForKey("KRServiceURL");
    return moved ? *std::move(moved)
                 : Value(platform::current()->defaultServiceUrl().value_or(
                       std::string(API_URL_PROD)));
}

std::string fallbackBaseURL() {
    std::string url(API_URL_PROD);
    platform::current()->developerLog().log("Fallback KRServiceURL " + url);
    return url;
}

std::string apiVersion() { return std::string(API_VERSION); }

} // namespace KRNetworkManager
} // namespace morvellacinto
