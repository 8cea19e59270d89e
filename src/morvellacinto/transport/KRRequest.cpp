#include "morvellacinto/transport/KRRequest.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/UrlParser.h"

#include <algorithm>

namespace morvellacinto {
namespace {

// Text that is no URL, as an error may show it. Nobody knows where a user begins and ends in it:
// all up to the last "@" goes.
std::string shown(std::string_view text) {
    const std::string_view path = text.substr(0, text.find_first_of("?#"));
    const std::size_t afterUser = text.rfind('@') + 1; // 0 without one
    return std::string(path.substr(std::min(afterUser, path.size())));
}

} // namespace

KRRequest::KRRequest(KRRequestType type, TextArgument url, std::optional<Params> params,
                     const Payload& payload, std::optional<Uuid> auth)
    : type_(type), url_(platform::current()->urlParser().parse(url)),
      refusedUrl_(url_ ? std::string() : shown(url)), payload_(nativeToHttpData(payload)),
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
    if (!native) {
        return std::nullopt;
    }
    return writeJson(*native);
}

} // namespace morvellacinto
