#include "morvellacinto/transport/KRRequest.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/UrlParser.h"

namespace morvellacinto {

KRRequest::KRRequest(KRRequestType type, std::string_view url, std::optional<Object> params,
                     const std::optional<Value>& payload, std::optional<Uuid> auth)
    : type_(type), url_(platform::current()->urlParser().parse(url)), params_(std::move(params)),
      payload_(nativeToHttpData(payload)), apiToken_(auth) {}

KRRequest KRRequest::requestWithType(KRRequestType type, std::string_view url) {
    return requestWithType(type, url, std::nullopt, std::nullopt, std::nullopt);
}

KRRequest KRRequest::requestWithType(KRRequestType type, std::string_view url,
                                     std::optional<Object> params) {
    return requestWithType(type, url, std::move(params), std::nullopt, std::nullopt);
}

KRRequest KRRequest::requestWithType(KRRequestType type, std::string_view url,
                                     const std::optional<Value>& payload,
                                     std::optional<Uuid> auth) {
    return requestWithType(type, url, std::nullopt, payload, auth);
}

KRRequest KRRequest::requestWithType(KRRequestType type, std::string_view url,
                                     std::optional<Object> params,
                                     const std::optional<Value>& payload,
                                     std::optional<Uuid> auth) {
    return {type, url, std::move(params), payload, auth};
}

std::optional<std::string> KRRequest::nativeToHttpData(const std::optional<Value>& native) {
    if (!native) {
        return std::nullopt;
    }
    return writeJson(*native);
}

} // namespace morvellacinto
