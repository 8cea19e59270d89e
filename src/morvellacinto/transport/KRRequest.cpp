// SPDX-License-Identifier: MIT
#include "morvellacinto/transport/KRRequest.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/UrlParser.h"
#include "morvellacinto/transport/ShownUrl.h"

namespace morvellacinto {
KRRequest::KRRequest(KRRequestType type, TextArgument url, std::optional<Params> params,
                     const Payload& payload, std::optional<Uuid> auth)
    : type_(type), url_(platform::current()->urlParser().parse(url)),
      refusedUrl_(url_ ? std::string() : shownUrl(url)), payload_(nativeToHttpData(payload)),
      apiToken_(auth) {
    if (params) {
        params_ = std::move(params->members);
    }
}

KRRequest KRRequest::requestWithType(KRRequestType type, TextArgument url) {
    return {type, url, std::nullopt, std::nullopt, std::nullopt};
}

KRRequest KRRequest::requestWithType(KRRequestType type, TextArgument url, Params params) {
    return {type, url, std::move(params), std::nullopt, std::nullopt};
}

KRRequest KRRequest::requestWithType(KRRequestType type, TextArgument url, const Payload& payload,
                                     std::optional<Uuid> auth) {
    return {type, url, std::nullopt, payload, auth};
}

KRRequest KRRequest::requestWithType(KRRequestType type, TextArgument url,
                                     std::optional<Params> params, const Payload& payload,
                                     std::optional<Uuid> auth) {
    return {type, url, std::move(params), payload, auth};
}

std::optional<std::string> KRRequest::nativeToHttpData(const Payload& native) {
    return native ? std::optional(writeJson(*native)) : std::nullopt;
}

} // namespace morvellacinto
