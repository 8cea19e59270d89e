// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace morvellacinto::service {

/// One request to the audience endpoint, as it came.
struct Upload {
    std::string method;
    std::string path;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::string source; ///< address and port that it came from

    /// The value of a header, whatever the case of its name.
    [[nodiscard]] std::optional<std::string> header(const std::string& name) const;

    /// What is wrong with it, in one sentence; nothing for an upload that the service accepts.
    [[nodiscard]] std::optional<std::string> fault() const;

    /// The answer to an upload without fault: tags and a mapping that tell what it held.
    [[nodiscard]] Object answer() const;

    /// "method", "path", "headers", "bytes" of the body, and "body" as JSON or else "text". Bytes
    /// of headers and text outside of ASCII appear as question marks.
    [[nodiscard]] Object record() const;
};

} // namespace morvellacinto::service
