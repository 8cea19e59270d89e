#pragma once

#include "morvellacinto/platform/HttpSession.h"

#include <string>
#include <string_view>
#include <vector>

namespace morvellacinto::native {

/// Whether `text` can be a method or the name of a header.
[[nodiscard]] bool isHttpToken(std::string_view text) noexcept;

/// Names are compared without regard to case.
[[nodiscard]] bool hasHeader(const std::vector<platform::HttpHeader>& headers,
                             std::string_view name) noexcept;

/// The headers of a request: those of the session that the request does not override, the
/// request's own, and what both leave open ("Accept-Encoding: gzip", and User-Agent when
/// `userAgent` is not empty). Throws HttpFailure naming a header that cannot be sent or that is the
/// transport's own to set.
[[nodiscard]] std::vector<platform::HttpHeader>
mergedHeaders(const std::vector<platform::HttpHeader>& sessionHeaders,
              const std::vector<platform::HttpHeader>& requestHeaders,
              const std::string& userAgent);

} // namespace morvellacinto::native
