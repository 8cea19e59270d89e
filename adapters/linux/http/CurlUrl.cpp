#include "CurlUrl.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <new>

namespace morvellacinto::native {

namespace {

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return text;
}

bool isIn127(in_addr address) noexcept { return ntohl(address.s_addr) >> 24U == 127; }

} // namespace

bool isLoopback(const sockaddr& address) noexcept {
    if (address.sa_family == AF_INET) {
        return isIn127(reinterpret_cast<const sockaddr_in&>(address).sin_addr);
    }
    return address.sa_family == AF_INET6 &&
           IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

std::optional<CurlUrl> CurlUrl::parse(std::string_view text) {
    CurlUrl url(curl_url());
    const bool isPrintable =
        std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; });
    const bool isUrl =
        isPrintable && curl_url_set(url.handle(), CURLUPART_URL, std::string(text).c_str(),
                                    CURLU_NON_SUPPORT_SCHEME) == CURLUE_OK;
    return isUrl ? std::optional(std::move(url)) : std::nullopt;
}

std::optional<CurlUrl> CurlUrl::resolve(const std::string& reference) const {
    CurlUrl url(curl_url_dup(handle()));
    // As lenient as browsers are: what must be escaped and is not, libcurl escapes.
    const unsigned flags = CURLU_NON_SUPPORT_SCHEME | CURLU_ALLOW_SPACE | CURLU_URLENCODE;
    const bool isUrl =
        curl_url_set(url.handle(), CURLUPART_URL, reference.c_str(), flags) == CURLUE_OK;
    return isUrl ? std::optional(std::move(url)) : std::nullopt;
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
    if (inet_pton(AF_INET, host.c_str(), &address) == 1) {
        return isIn127(address);
    }
    return host == "[::1]" || host == "localhost";
}

bool CurlUrl::hasCredentials() const {
    return !part(CURLUPART_USER).empty() || !part(CURLUPART_PASSWORD).empty();
}

CurlUrl::CurlUrl(CURLU* handle) : handle_(handle) {
    if (handle == nullptr) {
        throw std::bad_alloc();
    }
}

std::string CurlUrl::part(CURLUPart part, unsigned flags) const {
    char* text = nullptr;
    curl_url_get(handle(), part, &text, flags);
    const std::unique_ptr<char, decltype(&curl_free)> owned(text, &curl_free);
    return text != nullptr ? text : "";
}

} // namespace morvellacinto::native
