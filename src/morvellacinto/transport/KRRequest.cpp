#include "morvellacinto/transport/KRRequest.h"

#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/foundation/Utf8.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/UrlParser.h"

#include <algorithm>

namespace morvellacinto {
namespace {

// Text that is no URL, as an error may show it: without what stands before an "@" anywhere, since
// nobody knows where such a text's user ends, and in valid UTF-8.
std::string shown(std::string_view text) {
    const std::size_t authority = text.find("//");
    const std::size_t start = authority == std::string_view::npos ? 0 : authority + 2;
    const std::string_view rest = text.substr(start);
    const std::string_view path = rest.substr(0, rest.find_first_of("?#"));
    const std::size_t user = rest.rfind('@');
    std::string safe(text.substr(0, start));
    if (user == std::string_view::npos) {
        safe += path;
    } else if (user < path.size()) {
        safe += path.substr(user + 1);
    }
    std::string shown;
    for (std::string_view left = safe; !left.empty();) {
        const std::size_t length = utf8SequenceLength(left);
        shown += length == 0 ? "?" : left.substr(0, length);
        left.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return shown;
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
