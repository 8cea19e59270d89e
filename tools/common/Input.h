// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace morvellacinto::tools {

/// What a program ends with that was called wrongly.
inline constexpr int wrongUsageStatus = 2;

/// What the user did wrong, in one line; the program ends with `wrongUsageStatus`.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The JSON value that `text`, an argument or a file's content named `source`, holds; may be a
/// scalar. Throws UsageError.
[[nodiscard]] Value readValue(std::string_view text, const std::string& source);

/// The content of a file, or of standard input for "-". Throws UsageError.
[[nodiscard]] std::string readFile(const std::string& path);

/// The JSON object, or the array, in a file. Both throw UsageError.
[[nodiscard]] Object readObject(const std::string& path);
[[nodiscard]] Array readArray(const std::string& path);

} // namespace morvellacinto::tools
