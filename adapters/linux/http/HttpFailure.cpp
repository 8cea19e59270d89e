// SPDX-License-Identifier: MIT
#include "HttpFailure.h"

#include "basics/SystemFiles.h"

#include <curl/curl.h>

#include <string_view>
#include <utility>

namespace morvellacinto::native {

namespace {

using enum HttpErrorCode;

constexpr std::pair<CURLcode, HttpErrorCode> codes[] = {
    {CURLE_COULDNT_RESOLVE_HOST, nameNotResolved},
    {CURLE_COULDNT_RESOLVE_PROXY, nameNotResolved},
    {CURLE_COULDNT_CONNECT, cannotConnect},
    {CURLE_PROXY, cannotConnect},
    {CURLE_SSL_CONNECT_ERROR, tlsFailed},
    {CURLE_SSL_CIPHER, tlsFailed},
    {CURLE_PEER_FAILED_VERIFICATION, certificateUntrusted},
    {CURLE_SSL_ISSUER_ERROR, certificateUntrusted},
    {CURLE_SSL_CACERT_BADFILE, certificateUntrusted}, // there is nothing to trust at all
    {CURLE_OPERATION_TIMEDOUT, timedOut},
    {CURLE_RECV_ERROR, connectionLost},
    {CURLE_GOT_NOTHING, connectionLost},
    {CURLE_SEND_ERROR, connectionLost},
    {CURLE_PARTIAL_FILE, connectionLost},
    {CURLE_UNSUPPORTED_PROTOCOL, malformedAnswer}, // an answer in another protocol than HTTP
    {CURLE_WEIRD_SERVER_REPLY, malformedAnswer},
    {CURLE_BAD_CONTENT_ENCODING, badContentEncoding},
};

HttpErrorCode codeOf(int curlCode, std::string_view detail) {
    if (curlCode == CURLE_RECV_ERROR && (detail.find("chunk") != std::string_view::npos ||
                                         detail.find("header") != std::string_view::npos)) {
        return malformedAnswer;
    }
    for (const auto& [known, code] : codes) {
        if (known == curlCode) {
            return code;
        }
    }
    return other;
}

} // namespace

KRError HttpFailure::asError(const std::string& url) const {
    KRError error{std::string(httpErrorDomain), static_cast<std::int64_t>(code), {}};
    if (!url.empty()) {
        error.userInfo.set(KRError::urlKey, visibleText(url));
    }
    error.userInfo.set(KRError::messageKey, visibleText(message)); // a redirect may name any bytes
    return error;
}

HttpFailure HttpFailure::ofCurl(int curlCode, const std::string& url, const std::string& detail) {
    return {codeOf(curlCode, detail),
            "No whole answer came from " + url + ": " +
                (detail.empty() ? curl_easy_strerror(CURLcode(curlCode)) : detail) + "."};
}

} // namespace morvellacinto::native
