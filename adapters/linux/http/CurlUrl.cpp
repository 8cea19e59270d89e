// SPDX-License-Identifier: MIT
#include "CurlUrl.h"

#include "Libcurl.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

namespace morvellacinto::native {

namespace {

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return text;
}

constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view urlCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                           "0123456789-._~:/?#[]@!$&'()*+,;=%";

// By RFC 3986, as far as libcurl is more lenient: characters, slashes, and what is behind a "%".
bool isAllowed(std::string_view text) {
    const std::string_view place = text.substr(std::min(text.find(':'), text.size()));
    bool isAllowed = text.find_first_not_of(urlCharacters) == std::string_view::npos &&
                     place.starts_with("://") && !place.starts_with(":///");
    for (auto at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 1)) {
        const std::string_view digits = text.substr(at + 1, 2);
        isAllowed = isAllowed && digits.size() == 2 &&
                    digits.find_first_not_of(hexDigits) == std::string_view::npos;
    }
    return isAllowed;
}

} // namespace

std::optional<CurlUrl> CurlUrl::parse(std::string_view text) {
    return isAllowed(text) ? CurlUrl(curl_url()).pointedTo(std::string(text), 0) : std::nullopt;
}

std::optional<CurlUrl> CurlUrl::resolve(const std::string& reference) const {
    // As lenient as browsers are: what must be escaped and is not, libcurl escapes.
    return CurlUrl(curl_url_dup(handle()))
        .pointedTo(reference, CURLU_ALLOW_SPACE | CURLU_URLENCODE);
}

std::string CurlUrl::text() const { return part(CURLUPART_URL); }

std::string CurlUrl::shown() const {
    const CurlUrl bare(curl_url_dup(handle()));
    for (const CURLUPart removed : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS,
                                    CURLUPART_QUERY, CURLUPART_FRAGMENT}) {
        curl_url_set(bare.handle(), removed, nullptr, 0);
    }
    return bare.text();
}

std::string CurlUrl::origin() const {
    return lowerCase(part(CURLUPART_SCHEME) + "://" + part(CURLUPART_HOST) + ":" +
                     part(CURLUPART_PORT, CURLU_DEFAULT_PORT));
}

bool CurlUrl::hasScheme(std::string_view scheme) const {
    return lowerCase(part(CURLUPART_SCHEME)) == scheme;
}

bool CurlUrl::isLoopback() const {
    const std::string host = lowerCase(part(CURLUPART_HOST));
    in_addr address{};
    const bool isNumber = inet_pton(AF_INET, host.c_str(), &address) == 1;
    return isNumber ? ntohl(address.s_addr) >> 24U == 127 : host == "[::1]" || host == "localhost";
}

bool CurlUrl::hasCredentials() const {
    return !part(CURLUPART_USER).empty() || !part(CURLUPART_PASSWORD).empty();
}

CurlUrl::CurlUrl(CURLU* handle) : handle_(handle) { requireMemory(handle != nullptr); }

std::optional<CurlUrl> CurlUrl::pointedTo(const std::string& url, unsigned flags) && {
    const CURLUcode result =
        curl_url_set(handle(), CURLUPART_URL, url.c_str(), flags | CURLU_NON_SUPPORT_SCHEME);
    return result == CURLUE_OK ? std::optional(std::move(*this)) : std::nullopt;
}

std::string CurlUrl::part(CURLUPart part, unsigned flags) const {
    char* text = nullptr;
    curl_url_get(handle(), part, &text, flags);
    const std::unique_ptr<char, decltype(&curl_free)> owned(text, &curl_free);
    return text != nullptr ? text : "";
}

} // namespace morvellacinto::native
