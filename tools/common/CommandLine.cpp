// SPDX-License-Identifier: MIT
#include "common/CommandLine.h"

#include "common/Input.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <sstream>

namespace morvellacinto::tools {

bool parse(CLI::App& app, int count, char** arguments) {
    try {
        app.parse(count, arguments);
        return true;
    } catch (const CLI::Success& wanted) {
        std::ostringstream text;
        app.exit(wanted, text, text);
        print(text.str().substr(0, text.str().find_last_not_of('\n') + 1));
        return false;
    } catch (const CLI::ParseError& error) {
        const std::string text = error.what();
        throw UsageError(text.substr(0, text.find('\n')));
    }
}

void print(const std::string& line) {
    if (!(std::cout << line << std::endl)) {
        throw std::runtime_error("standard output cannot be written");
    }
}

} // namespace morvellacinto::tools
