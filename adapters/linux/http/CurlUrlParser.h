#pragma once

#include "morvellacinto/platform/UrlParser.h"

namespace morvellacinto::native {

/// The opinion of the URL parser that transfers use. Accepts absolute URLs in printable ASCII only.
class CurlUrlParser final : public platform::UrlParser {
public:
    [[nodiscard]] std::optional<std::string> parse(std::string_view text) const override;
};

} // namespace morvellacinto::native
