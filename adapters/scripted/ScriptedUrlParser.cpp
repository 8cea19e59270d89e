#include "morvellacinto/scripted/ScriptedUrlParser.h"

#include "UrlSyntax.h"

namespace morvellacinto::scripted {

ScriptedUrlParser::ScriptedUrlParser() = default;

std::optional<std::string> ScriptedUrlParser::parse(std::string_view text) const {
    return hostOf(text).has_value() ? std::optional(std::string(text)) : std::nullopt;
}

} // namespace morvellacinto::scripted
