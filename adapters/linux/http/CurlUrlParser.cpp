#include "CurlUrlParser.h"

#include "CurlUrl.h"

namespace morvellacinto::native {

std::optional<std::string> CurlUrlParser::parse(std::string_view text) const {
    const std::optional<CurlUrl> url = CurlUrl::parse(text);
    return url ? std::optional(url->text()) : std::nullopt;
}

} // namespace morvellacinto::native
