// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/HttpSession.h"

#include <functional>
#include <optional>

namespace morvellacinto::native {

/// Whether requests may leave the device.
enum class UploadConsent {
    allowed,
    withheld, ///< no connection is opened and no name looked up: requests fail
    asked,    ///< `NativeOptions::beforeUpload` decides on each
};

/// Takes what is to be sent, the request changed or not; nothing refuses it. The first answer
/// counts. Any thread, at any time: it has no effect once nobody waits for it.
using UploadAnswer = std::function<void(std::optional<platform::HttpRequest> request)>;
/// Asks about a request, as `NativeOptions::beforeUpload`.
using UploadQuestion =
    std::function<void(const platform::HttpRequest& request, UploadAnswer answer)>;

} // namespace morvellacinto::native
