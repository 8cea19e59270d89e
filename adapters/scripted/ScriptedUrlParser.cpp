// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedUrlParser.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace morvellacinto::scripted {

namespace {

constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view schemeCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-.";

constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view urlCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                           "0123456789-._~:/?#[]@!$&'()*+,;=%";

bool isEscaped(std::string_view text) {
    for (auto at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 1)) {
        const std::string_view digits = text.substr(at + 1, 2);
        if (digits.size() < 2 || digits.find_first_not_of(hexDigits) != std::string_view::npos) {
            return false;
        }
    }
    return true;
}

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
        url.find_first_not_of(urlCharacters) != std::string_view::npos || !isEscaped(url)) {
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
