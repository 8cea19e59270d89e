#pragma once

#include "CurlUrl.h"

#include "morvellacinto/platform/HttpSession.h"

namespace morvellacinto::native {

/// Where a request goes, hop by hop, and what may go with it.
///
/// Only https, and plain http to loopback addresses, are ever opened. The request's body and its
/// own headers stay within the origin they were meant for, and what was once left behind does not
/// come back. A URL with a user name or password is refused: this adapter has no credentials to
/// give.
class Route {
public:
    static constexpr int maximumRedirects = 20;

    /// Throws HttpFailure for a request that must not or cannot be sent.
    explicit Route(const platform::HttpRequest& request);

    /// Whether an answer of `status` that names another place is to be followed.
    [[nodiscard]] static bool isRedirect(long status) noexcept;
    /// Moves to where such an answer points. Throws HttpFailure when it must not be followed; the
    /// URL is then still the one that gave the answer.
    void redirect(long status, const std::string& location);

    [[nodiscard]] const CurlUrl& url() const noexcept { return url_; }
    [[nodiscard]] const std::string& method() const noexcept { return method_; }
    [[nodiscard]] bool carriesBody() const noexcept { return carriesBody_; }
    [[nodiscard]] bool carriesOwnHeaders() const noexcept { return carriesOwnHeaders_; }

private:
    CurlUrl url_;
    std::string method_;
    bool carriesBody_;
    bool carriesOwnHeaders_ = true;
    bool startedOnLoopback_;
    int redirects_ = 0;
};

} // namespace morvellacinto::native
