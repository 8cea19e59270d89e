// SPDX-License-Identifier: MIT
#include "Redirects.h"

#include "Headers.h"
#include "HttpFailure.h"

#include <optional>
#include <utility>

namespace morvellacinto::native {

Hop firstHop(const platform::HttpRequest& request) {
    std::optional<CurlUrl> url = CurlUrl::parse(request.url.value_or(""));
    if (!url) {
        const auto& refused = request.refusedUrl;
        throw HttpFailure{HttpErrorCode::badUrl,
                          "The request has no valid URL" +
                              (refused.empty() ? "." : ": " + refused + ".")};
    }
    if (url->hasCredentials()) {
        throw HttpFailure{HttpErrorCode::badUrl,
                          "A URL with a user name or password is refused: " + url->shown() + "."};
    }
    const bool isLoopback = url->isLoopback();
    if (!url->hasScheme("https") && !(url->hasScheme("http") && isLoopback)) {
        throw HttpFailure{
            HttpErrorCode::schemeRefused,
            "Only https, and http to a loopback address, are allowed: " + url->shown() + "."};
    }
    if (!isHttpToken(request.method)) {
        throw HttpFailure{HttpErrorCode::invalidRequest, "The method is no HTTP method."};
    }
    return {.url = *std::move(url),
            .method = request.method,
            .carriesBody = request.body.has_value(),
            .mayBePlain = isLoopback};
}

bool isRedirect(long status) noexcept {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

Hop nextHop(const Hop& hop, long status, const std::string& location) {
    const auto refuse = [&hop](const std::string& why) {
        return HttpFailure{HttpErrorCode::redirectRefused,
                           "The redirect by " + hop.url.shown() + " is refused: " + why + "."};
    };
    if (hop.redirects == maximumRedirects) {
        throw HttpFailure{HttpErrorCode::tooManyRedirects,
                          "More than " + std::to_string(maximumRedirects) +
                              " redirects, the last one by " + hop.url.shown() + "."};
    }
    std::optional<CurlUrl> target = hop.url.resolve(location);
    if (!target) {
        throw refuse("it names no valid URL");
    }
    if (target->hasCredentials()) {
        throw refuse("its URL has a user name or password");
    }
    if (!target->hasScheme("https") &&
        !(target->hasScheme("http") && target->isLoopback() && hop.mayBePlain)) {
        throw refuse(target->shown() + " is not https");
    }
    const bool leavesOrigin = target->origin() != hop.url.origin();
    const bool keepsMethod = status == 307 || status == 308;
    const bool onlyReads = (hop.method == "GET" || hop.method == "HEAD") && !hop.carriesBody;
    if (keepsMethod && leavesOrigin && !onlyReads) {
        throw refuse("the request's body must not go to " + target->origin());
    }
    return {.url = *std::move(target),
            .method = keepsMethod || hop.method == "HEAD" ? hop.method : "GET",
            .carriesBody = hop.carriesBody && keepsMethod,
            .carriesOwnHeaders =
                hop.carriesOwnHeaders && !leavesOrigin && (keepsMethod || onlyReads),
            .mayBePlain = hop.mayBePlain,
            .redirects = hop.redirects + 1};
}

} // namespace morvellacinto::native
