#pragma once

#include "morvellacinto/platform/HttpSession.h"

#include <functional>
#include <optional>

namespace morvellacinto::native {

/// Whether requests may leave the device.
enum class UploadConsent {
    allowed,
    withheld, ///< nothing is connected to and no name looked up: requests fail
    asked,    ///< `NativeOptions::beforeUpload` decides on each request
};

/// Answers the question whether a request may leave: with the request, changed or not, to send it,
/// with nothing to refuse it. The first answer counts. Any thread, for ever: an answer that nobody
/// waits for has no effect.
using UploadAnswer = std::function<void(std::optional<platform::HttpRequest> request)>;

/// Asks that question about a request as it would leave, but for the headers of HTTP's own.
using UploadQuestion =
    std::function<void(const platform::HttpRequest& request, UploadAnswer answer)>;

} // namespace morvellacinto::native
