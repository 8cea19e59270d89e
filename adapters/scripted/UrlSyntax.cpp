#include "UrlSyntax.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace morvellacinto::scripted {

namespace {

// The locale-dependent classification of <cctype> has no place in a URL.
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isBlankOrControl(char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7F'; }

bool isScheme(std::string_view text) {
    return !text.empty() && isLetter(text.front()) &&
           std::all_of(text.begin(), text.end(), [](char c) {
               return isLetter(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
           });
}

bool isPort(std::string_view text) {
    std::uint16_t port = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && rest == text.data() + text.size();
}

} // namespace

std::optional<std::string_view> hostOf(std::string_view url) noexcept {
    const std::size_t schemeEnd = url.find("://");
    if (schemeEnd == std::string_view::npos || !isScheme(url.substr(0, schemeEnd)) ||
        std::any_of(url.begin(), url.end(), isBlankOrControl)) {
        return std::nullopt;
    }
    std::string_view authority = url.substr(schemeEnd + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
        authority.remove_prefix(at + 1);
    }
    std::size_t hostEnd = 0;
    if (authority.starts_with('[')) {
        const std::size_t bracket = authority.find(']');
        if (bracket == std::string_view::npos || bracket == 1) {
            return std::nullopt;
        }
        hostEnd = bracket + 1;
    } else {
        hostEnd = std::min(authority.find(':'), authority.size());
    }
    const std::string_view behind = authority.substr(hostEnd);
    if (hostEnd == 0 || (!behind.empty() && (behind[0] != ':' || !isPort(behind.substr(1))))) {
        return std::nullopt;
    }
    return authority.substr(0, hostEnd);
}

} // namespace morvellacinto::scripted
