// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// An absolute URL as libcurl parsed it. Decisions are taken on the same parse that the transfer is
/// given, so that no two opinions of one text can differ.
class CurlUrl {
public:
    /// Nothing unless `text` is an absolute URL by RFC 3986 with a host, of whatever scheme.
    [[nodiscard]] static std::optional<CurlUrl> parse(std::string_view text);
    /// What `reference`, as an answer names it, means seen from this URL.
    [[nodiscard]] std::optional<CurlUrl> resolve(const std::string& reference) const;

    [[nodiscard]] std::string text() const;
    /// The text without user, password, query and fragment: fit for messages.
    [[nodiscard]] std::string shown() const;
    /// Scheme, host and port, in lower case; equal for URLs of one origin.
    [[nodiscard]] std::string origin() const;
    [[nodiscard]] bool hasScheme(std::string_view scheme) const;
    /// An address in 127.0.0.0/8, ::1, or "localhost", which libcurl looks up nowhere.
    [[nodiscard]] bool isLoopback() const;
    [[nodiscard]] bool hasCredentials() const;

    /// For CURLOPT_CURLU; this object must outlive the transfer.
    [[nodiscard]] CURLU* handle() const noexcept { return handle_.get(); }

private:
    struct Cleanup {
        void operator()(CURLU* handle) const noexcept { curl_url_cleanup(handle); }
    };

    explicit CurlUrl(CURLU* handle);
    [[nodiscard]] std::optional<CurlUrl> pointedTo(const std::string& url, unsigned flags) &&;
    [[nodiscard]] std::string part(CURLUPart part, unsigned flags = 0) const;

    std::unique_ptr<CURLU, Cleanup> handle_;
};

} // namespace morvellacinto::native
