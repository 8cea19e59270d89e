// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/App.hpp>

#include <string>

namespace morvellacinto::tools {

/// Reads the command line. Gives false when it asked for help or the version, which then stands on
/// standard output. Throws UsageError.
[[nodiscard]] bool parse(CLI::App& app, int count, char** arguments);

/// Standard output, one line, at once. Throws std::runtime_error when it cannot be written.
void print(const std::string& line);

} // namespace morvellacinto::tools
