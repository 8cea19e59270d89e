// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/HttpSession.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace morvellacinto::native {

/// Whether `text` can be a method or the name of a header.
[[nodiscard]] bool isHttpToken(std::string_view text) noexcept;

/// The headers of a request: those of the session that the request does not override, and the
/// request's own. Throws HttpFailure naming a header that cannot be sent or that is the transport's
/// own to set.
[[nodiscard]] std::vector<platform::HttpHeader>
mergedHeaders(const std::vector<platform::HttpHeader>& sessionHeaders,
              const std::vector<platform::HttpHeader>& requestHeaders);

/// Watches an answer's headers and trailers for what libcurl takes and this adapter does not.
class AnswerHeaders {
public:
    static constexpr std::size_t maximumBytes = std::size_t(256) << 10U;

    /// Throws HttpFailure when the lines become too many, when two lengths contradict each other,
    /// and for an encoding that is neither gzip, once in all, nor none: each further one multiplies
    /// what a few bytes can come to.
    void receive(std::string_view line);
    /// Whether the headers have come to their end.
    [[nodiscard]] bool areComplete() const noexcept { return areComplete_; }
    /// Whether they tell where a body ends.
    [[nodiscard]] bool tellLength() const noexcept { return isChunked_ || !length_.empty(); }

private:
    std::size_t bytes_ = 0;
    bool areComplete_ = false;
    bool isPacked_ = false;
    bool isChunked_ = false;
    std::string length_;
};

} // namespace morvellacinto::native
