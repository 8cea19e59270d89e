#include "morvellacinto/scripted/ScriptedUrlParser.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace morvellacinto::scripted {

namespace {

constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view schemeCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-.";

bool isBlankOrControl(char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7F'; }

bool isPort(std::string_view text) {
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, port);
    return error == std::errc() && rest == end;
}

} // namespace

std::optional<std::string> ScriptedUrlParser::parse(std::string_view text) const {
    return hostOf(text).has_value() ? std::optional(std::string(text)) : std::nullopt;
}

std::optional<std::string> ScriptedUrlParser::hostOf(std::string_view url) {
    const std::size_t schemeEnd = url.find_first_not_of(schemeCharacters);
    if (schemeEnd == std::string_view::npos || !url.substr(schemeEnd).starts_with("://") ||
        letters.find(url.front()) == std::string_view::npos ||
        std::any_of(url.begin(), url.end(), isBlankOrControl)) {
        return std::nullopt;
    }
    std::string_view authority = url.substr(schemeEnd + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    authority.remove_prefix(authority.rfind('@') + 1); // none found is one before the first
    const std::size_t hostEnd = authority.starts_with('[')
                                    ? authority.find(']') + 1
                                    : std::min(authority.find(':'), authority.size());
    const std::string_view host = authority.substr(0, hostEnd);
    const std::string_view behind = authority.substr(hostEnd);
    if (host.empty() || host == "[]" ||
        (!behind.empty() && (behind.front() != ':' || !isPort(behind.substr(1))))) {
        return std::nullopt;
    }
    return std::string(host);
}

} // namespace morvellacinto::scripted
