#pragma once

#include "Exchange.h"
#include "Route.h"

#include "morvellacinto/platform/HttpSession.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace morvellacinto::native {

/// One task's work from its start to its end, redirects included. Used on the transfer thread once
/// it has been submitted.
class Transfer {
public:
    using Clock = std::chrono::steady_clock;
    /// What a task ends with, to be handed to its completion on the session's queue.
    struct Outcome {
        platform::HttpSession::Completion completion;
        std::optional<std::string> data;
        std::optional<platform::HttpResponse> response;
        std::optional<KRError> error;
    };
    using Deliver = std::function<void(Outcome outcome)>;

    /// `deliver` is called at most once.
    Transfer(std::shared_ptr<const platform::HttpSessionConfiguration> configuration,
             platform::HttpRequest request, platform::HttpSession::Completion completion,
             Deliver deliver);

    /// The time-out counts from here.
    void start(Clock::time_point now);
    [[nodiscard]] Clock::time_point deadline() const noexcept { return deadline_; }

    /// Finds out where the request goes first. Throws HttpFailure when it must not be sent.
    void openRoute() { route_.emplace(request_); }
    /// Of the present hop.
    [[nodiscard]] std::string origin() const { return route_->url().origin(); }

    /// Prepares the present hop; the handle is this object's. Throws HttpFailure.
    [[nodiscard]] CURL* beginExchange(ExchangeContext& context, Clock::time_point now);
    /// Judges the hop that libcurl ended with `result`. True when there is a next one; else the
    /// answer is whole. Throws HttpFailure.
    [[nodiscard]] bool endExchange(CURLcode result);

    void succeed();
    void fail(const HttpFailure& failure);
    /// Cleans up the handle, which libcurl's multi handle must know no more.
    void dropExchange() { exchange_.reset(); }

private:
    [[nodiscard]] std::optional<platform::HttpResponse> response() const;
    /// Of the present hop, or of the request when that was not sent; absent when it is no URL.
    [[nodiscard]] std::optional<std::string> shownUrl() const;
    void end(std::optional<KRError> error);

    const std::shared_ptr<const platform::HttpSessionConfiguration> configuration_;
    const platform::HttpRequest request_;
    platform::HttpSession::Completion completion_;
    Deliver deliver_;
    Clock::time_point deadline_;
    std::optional<Route> route_;
    std::optional<Exchange> exchange_;
};

} // namespace morvellacinto::native
