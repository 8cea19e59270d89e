// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Interface.h"

#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::platform {

/// The platform's opinion of what a URL is.
class MORVELLACINTO_EXPORT UrlParser : public Interface {
public:
    /// The URL as the platform's HTTP session will use it, or nothing for text that is no absolute
    /// URL. A URL of a scheme that the session refuses is still a URL. Any thread.
    [[nodiscard]] virtual std::optional<std::string> parse(std::string_view text) const = 0;
};

} // namespace morvellacinto::platform
