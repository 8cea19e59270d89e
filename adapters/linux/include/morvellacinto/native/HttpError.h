// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace morvellacinto::native {

/// The domain of each error that an HTTP task of this adapter ends with.
inline constexpr std::string_view httpErrorDomain = "morvellacinto.http";

/// What `KRError::code` holds in that domain. The numbers are stable.
enum class HttpErrorCode : std::int64_t {
    badUrl = 1,         ///< there is no URL, it is none, or it carries a user name or password
    schemeRefused = 2,  ///< neither https nor plain http to a loopback address
    invalidRequest = 3, ///< a method or header that cannot be sent
    uploadWithheld = 4, ///< there is no consent to upload
    uploadRefused = 5,  ///< asked whether to send it, the host said no, or nothing in time

    nameNotResolved = 10,
    cannotConnect = 11, ///< refused or unreachable, the proxy included
    tlsFailed = 12,
    certificateUntrusted = 13, ///< no chain to a trust anchor, expired, or for another host
    timedOut = 14,             ///< the resource time-out passed, in whatever phase
    connectionLost = 15,       ///< closed or reset before the answer was complete

    malformedAnswer = 20,    ///< not HTTP, or in another protocol than was asked for
    badContentEncoding = 21, ///< damaged gzip, or another encoding
    answerTooLarge = 22,     ///< more than 64 MiB once decoded, or 256 KiB of headers
    tooManyRedirects = 23,   ///< more than 20
    redirectRefused = 24,    ///< it leads where this request must not go

    other = 99,
};

} // namespace morvellacinto::native
