// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/UrlParser.h"

namespace morvellacinto::scripted {

/// A small syntax check of absolute URLs, which come back as they are.
///
/// A URL is "scheme://host" with an optional user part, port, path, query and fragment. The scheme
/// is a letter, then letters, digits, "+", "-" or "."; the host is not empty, or an address in
/// brackets; the port has digits alone and is at most 65535; every character is one of RFC 3986's,
/// and two hexadecimal digits follow each "%".
class MORVELLACINTO_EXPORT ScriptedUrlParser final : public platform::UrlParser {
public:
    [[nodiscard]] std::optional<std::string> parse(std::string_view text) const override;

    /// Brackets of an address included; nothing for text that is no absolute URL.
    [[nodiscard]] static std::optional<std::string> hostOf(std::string_view url);
};

} // namespace morvellacinto::scripted
