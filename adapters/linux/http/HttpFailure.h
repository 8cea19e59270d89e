// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/KRError.h"
#include <morvellacinto/native/HttpError.h>

#include <string>

namespace morvellacinto::native {

/// Why a transfer ends without an answer; thrown and caught inside the adapter.
struct HttpFailure {
    HttpErrorCode code;
    /// One sentence for a developer, free of header values, bodies and queries.
    std::string message;

    /// `url` as it may be shown; empty when there is none.
    [[nodiscard]] KRError asError(const std::string& url) const;
    /// Of a transfer to `url` that libcurl ended with `curlCode`, a CURLcode other than CURLE_OK;
    /// `detail` is libcurl's own text and may be empty.
    [[nodiscard]] static HttpFailure ofCurl(int curlCode, const std::string& url,
                                            const std::string& detail);
};

} // namespace morvellacinto::native
