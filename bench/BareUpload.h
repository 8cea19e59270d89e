// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <string>

namespace morvellacinto::bench {

struct UploadTarget {
    std::string url;
    std::string trustFile; ///< the system's certificates and the server's authority
    std::string body;
};

/// Uploads by libcurl alone, on the calling thread. Each gives the answer's body and throws when
/// there is none.
class BareMulti {
public:
    /// One handle for all uploads, whose parsed trust store libcurl keeps.
    explicit BareMulti(UploadTarget target);
    BareMulti(const BareMulti&) = delete;
    BareMulti& operator=(const BareMulti&) = delete;
    ~BareMulti();
    [[nodiscard]] std::string upload();

private:
    const UploadTarget target_;
    CURLM* const multi_;
};

/// A new easy handle as libcurl sets it up.
[[nodiscard]] std::string uploadByNewEasyHandle(const UploadTarget& target);

} // namespace morvellacinto::bench
