#include "MobileCountries.h"

#include <charconv>

namespace morvellacinto::native {

namespace {

struct Entry {
    int mobileCountryCode;
    const char* country;
};

constexpr Entry table[] = {
#include "MobileCountries.inc"
};

} // namespace

std::optional<std::string> countryOfMobileCode(std::string_view mobileCountryCode) {
    int code = 0;
    std::from_chars(mobileCountryCode.data(), mobileCountryCode.data() + mobileCountryCode.size(),
                    code);
    for (const Entry& entry : table) {
        if (entry.mobileCountryCode == code) {
            return entry.country;
        }
    }
    return std::nullopt;
}

} // namespace morvellacinto::native
