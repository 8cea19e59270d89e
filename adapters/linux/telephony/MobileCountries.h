#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// The ISO 3166-1 alpha-2 code, in lower case, of the country that a mobile country code (three
/// digits) is assigned to. Nothing for international networks and for what is no such code.
[[nodiscard]] std::optional<std::string> countryOfMobileCode(std::string_view mobileCountryCode);

} // namespace morvellacinto::native
