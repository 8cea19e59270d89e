#include "morvellacinto/scripted/ScriptedAssertionHandler.h"

#include <utility>

namespace morvellacinto::scripted {

ScriptedAssertionHandler::ScriptedAssertionHandler() = default;

void ScriptedAssertionHandler::handleFailureInFunction(std::string_view function,
                                                       std::string_view file, int line,
                                                       std::string_view description) {
    bool returns = false;
    {
        const std::lock_guard lock(mutex_);
        failures_.push_back(
            {std::string(function), std::string(file), line, std::string(description)});
        returns = returns_;
    }
    if (!returns) {
        AssertionHandler::handleFailureInFunction(function, file, line, description);
    }
}

void ScriptedAssertionHandler::returnAfterFailure(bool returns) {
    const std::lock_guard lock(mutex_);
    returns_ = returns;
}

std::vector<ScriptedAssertionHandler::Failure> ScriptedAssertionHandler::takeFailures() {
    const std::lock_guard lock(mutex_);
    return std::exchange(failures_, {});
}

} // namespace morvellacinto::scripted
