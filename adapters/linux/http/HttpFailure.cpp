#include "HttpFailure.h"

#include <curl/curl.h>

namespace morvellacinto::native {

namespace {

HttpErrorCode codeOf(int curlCode, const std::string& detail) {
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
    case CURLE_SSL_CACERT_BADFILE: // there is nothing to trust at all
        return HttpErrorCode::certificateUntrusted;
    case CURLE_OPERATION_TIMEDOUT:
        return HttpErrorCode::timedOut;
    case CURLE_RECV_ERROR: // also of a chunk or header that is none
        return detail.find("chunk") == std::string::npos &&
                       detail.find("header") == std::string::npos
                   ? HttpErrorCode::connectionLost
                   : HttpErrorCode::malformedAnswer;
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
        return HttpErrorCode::connectionLost;
    case CURLE_UNSUPPORTED_PROTOCOL: // also what an answer in another protocol than HTTP ends in
    case CURLE_WEIRD_SERVER_REPLY:
        return HttpErrorCode::malformedAnswer;
    case CURLE_BAD_CONTENT_ENCODING:
        return HttpErrorCode::badContentEncoding;
    default:
        return HttpErrorCode::other;
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
    return {codeOf(curlCode, detail),
            "No whole answer came from " + url + ": " +
                (detail.empty() ? curl_easy_strerror(CURLcode(curlCode)) : detail) + "."};
}

} // namespace morvellacinto::native
