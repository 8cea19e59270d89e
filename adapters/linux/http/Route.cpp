#include "Route.h"

#include "HttpFailure.h"

namespace morvellacinto::native {

namespace {

CurlUrl urlOf(const platform::HttpRequest& request) {
    if (!request.url) {
        throw HttpFailure{HttpErrorCode::badUrl, "The request has no valid URL."};
    }
    std::optional<CurlUrl> url = CurlUrl::parse(*request.url);
    if (!url) {
        throw HttpFailure{HttpErrorCode::badUrl, "The request's URL is not an absolute URL."};
    }
    if (url->hasCredentials()) {
        throw HttpFailure{HttpErrorCode::badUrl,
                          "A URL with a user name or password is refused: " + url->shown() + "."};
    }
    if (!url->hasScheme("https") && !(url->hasScheme("http") && url->isLoopback())) {
        throw HttpFailure{
            HttpErrorCode::schemeRefused,
            "Only https, and http to a loopback address, are allowed: " + url->shown() + "."};
    }
    return *std::move(url);
}

} // namespace

Route::Route(const platform::HttpRequest& request)
    : url_(urlOf(request)), method_(request.method), carriesBody_(request.body.has_value()),
      startedOnLoopback_(url_.isLoopback()) {}

bool Route::isRedirect(long status) noexcept {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

void Route::redirect(long status, const std::string& location) {
    if (++redirects_ > maximumRedirects) {
        throw HttpFailure{HttpErrorCode::tooManyRedirects,
                          "More than " + std::to_string(maximumRedirects) +
                              " redirects, the last one by " + url_.shown() + "."};
    }
    const auto refuse = [this](const std::string& why) {
        return HttpFailure{HttpErrorCode::redirectRefused,
                           "The redirect by " + url_.shown() + " is refused: " + why + "."};
    };
    std::optional<CurlUrl> target = url_.resolve(location);
    if (!target) {
        throw refuse("it names no valid URL");
    }
    if (target->hasCredentials()) {
        throw refuse("its URL has a user name or password");
    }
    const bool plainToLoopback =
        target->hasScheme("http") && target->isLoopback() && startedOnLoopback_;
    if (!target->hasScheme("https") && !plainToLoopback) {
        throw refuse(target->shown() + " is not https");
    }
    const bool leavesOrigin = target->origin() != url_.origin();
    const bool keepsMethod = status == 307 || status == 308;
    const bool onlyReads = (method_ == "GET" || method_ == "HEAD") && !carriesBody_;
    if (keepsMethod && leavesOrigin && !onlyReads) {
        throw refuse("the request's body must not go to " + target->origin());
    }
    if (leavesOrigin || (!keepsMethod && !onlyReads)) {
        carriesOwnHeaders_ = false;
    }
    if (!keepsMethod) {
        carriesBody_ = false;
        if (method_ != "HEAD") {
            method_ = "GET";
        }
    }
    url_ = *std::move(target);
}

} // namespace morvellacinto::native
