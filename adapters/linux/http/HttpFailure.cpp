#include "HttpFailure.h"

#include <curl/curl.h>

namespace morvellacinto::native {

namespace {

// Of a chunk or header that is none; libcurl has no code of its own for it.
bool isMalformed(int curlCode, const std::string& detail) {
    return curlCode == CURLE_RECV_ERROR && (detail.find("chunk") != std::string::npos ||
                                            detail.find("header") != std::string::npos);
}

HttpErrorCode codeOf(int curlCode) {
    switch (curlCode) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        return HttpErrorCode::nameNotResolved;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
        return HttpErrorCode::cannotConnect;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
        return HttpErrorCode::tlsFailed;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
        return HttpErrorCode::certificateUntrusted;
    case CURLE_OPERATION_TIMEDOUT:
        return HttpErrorCode::timedOut;
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
        return HttpErrorCode::connectionLost;
    case CURLE_UNSUPPORTED_PROTOCOL: // also what an answer in another protocol than HTTP ends in
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
        return HttpErrorCode::malformedAnswer;
    default:
        return HttpErrorCode::other;
    }
}

const char* sentenceOf(HttpErrorCode code) {
    switch (code) {
    case HttpErrorCode::nameNotResolved:
        return "The host's name could not be resolved";
    case HttpErrorCode::cannotConnect:
        return "No connection could be made";
    case HttpErrorCode::tlsFailed:
        return "The TLS handshake failed";
    case HttpErrorCode::certificateUntrusted:
        return "The server's certificate is not trusted";
    case HttpErrorCode::timedOut:
        return "The request timed out";
    case HttpErrorCode::connectionLost:
        return "The connection was lost before the answer was complete";
    case HttpErrorCode::malformedAnswer:
        return "The answer is not valid HTTP";
    default:
        return "The transfer failed";
    }
}

} // namespace

KRError HttpFailure::asError(const std::optional<std::string>& url) const {
    KRError error{std::string(httpErrorDomain), static_cast<std::int64_t>(code), {}};
    if (url) {
        error.userInfo.set(KRError::urlKey, *url);
    }
    error.userInfo.set(KRError::messageKey, message);
    return error;
}

HttpFailure HttpFailure::ofCurl(int curlCode, const std::string& url, const std::string& detail) {
    const HttpErrorCode code =
        isMalformed(curlCode, detail) ? HttpErrorCode::malformedAnswer : codeOf(curlCode);
    std::string message = std::string(sentenceOf(code)) + ": " + url + " (" +
                          (detail.empty() ? curl_easy_strerror(CURLcode(curlCode)) : detail) + ").";
    return {code, std::move(message)};
}

} // namespace morvellacinto::native
