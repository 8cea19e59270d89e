#include "MobileCountries.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace morvellacinto::native {

namespace {

struct Entry {
    int mobileCountryCode;
    const char* country;
};

constexpr Entry table[] = {
#include "MobileCountries.inc"
};

constexpr auto inOrder = [](const Entry& left, const Entry& right) {
    return left.mobileCountryCode < right.mobileCountryCode;
};

static_assert(std::is_sorted(std::begin(table), std::end(table), inOrder));

} // namespace

std::optional<std::string> countryOfMobileCode(std::string_view mobileCountryCode) {
    int code = 0;
    const char* end = mobileCountryCode.data() + mobileCountryCode.size();
    const auto parsed = std::from_chars(mobileCountryCode.data(), end, code);
    if (mobileCountryCode.size() != 3 || parsed.ec != std::errc() || parsed.ptr != end) {
        return std::nullopt;
    }
    const auto* found =
        std::lower_bound(std::begin(table), std::end(table), Entry{code, ""}, inOrder);
    return found != std::end(table) && found->mobileCountryCode == code
               ? std::optional<std::string>(found->country)
               : std::nullopt;
}

} // namespace morvellacinto::native
