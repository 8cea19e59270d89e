// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedAssertionHandler.h"

#include <utility>

namespace morvellacinto::scripted {

void ScriptedAssertionHandler::handleFailureInFunction(std::string_view function,
                                                       std::string_view file, int line,
                                                       std::string_view description) {
    {
        const std::lock_guard lock(mutex_);
        failures_.push_back(
            {std::string(function), std::string(file), line, std::string(description)});
    }
    if (!returns_) {
        AssertionHandler::handleFailureInFunction(function, file, line, description);
    }
}

std::vector<ScriptedAssertionHandler::Failure> ScriptedAssertionHandler::takeFailures() {
    const std::lock_guard lock(mutex_);
    return std::exchange(failures_, {});
}

} // namespace morvellacinto::scripted
