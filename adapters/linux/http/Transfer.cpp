#include "Transfer.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace morvellacinto::native {

namespace {

// libcurl counts in a long; 24 days are as good as no limit.
constexpr std::chrono::milliseconds longestTimeout{INT_MAX};

} // namespace

Transfer::Transfer(std::shared_ptr<const platform::HttpSessionConfiguration> configuration,
                   platform::HttpRequest request, platform::HttpSession::Completion completion,
                   Deliver deliver)
    : configuration_(std::move(configuration)), request_(std::move(request)),
      completion_(std::move(completion)), deliver_(std::move(deliver)) {}

void Transfer::start(Clock::time_point now) {
    deadline_ = now + std::clamp(configuration_->resourceTimeout, std::chrono::milliseconds(0),
                                 longestTimeout);
}

CURL* Transfer::beginExchange(ExchangeContext& context, Clock::time_point now) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - now);
    exchange_.emplace(context, *route_, request_, configuration_->additionalHeaders,
                      std::max(left, std::chrono::milliseconds(1))); // 0 would mean no limit
    return exchange_->handle();
}

bool Transfer::endExchange(CURLcode result) {
    exchange_->finish(result);
    const std::optional<std::string> target = exchange_->redirectTarget();
    if (target) {
        const long status = exchange_->status();
        exchange_.reset(); // before the URL that it refers to changes
        route_->redirect(status, *target);
    }
    return target.has_value();
}

void Transfer::succeed() { end(std::nullopt); }

void Transfer::fail(const HttpFailure& failure) { end(failure.asError(shownUrl())); }

std::optional<std::string> Transfer::shownUrl() const {
    if (route_) {
        return route_->url().shown();
    }
    const std::optional<CurlUrl> url = request_.url ? CurlUrl::parse(*request_.url) : std::nullopt;
    return url ? std::optional(url->shown()) : std::nullopt;
}

std::optional<platform::HttpResponse> Transfer::response() const {
    if (!exchange_ || exchange_->status() == 0) {
        return std::nullopt;
    }
    return platform::HttpResponse{route_->url().text(), static_cast<int>(exchange_->status())};
}

void Transfer::end(std::optional<KRError> error) {
    Outcome outcome{std::move(completion_), std::nullopt, response(), std::move(error)};
    if (outcome.response) {
        outcome.data = exchange_->takeBody();
    }
    exchange_.reset();
    deliver_(std::move(outcome));
}

} // namespace morvellacinto::native
