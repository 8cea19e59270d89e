// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/AssertionHandler.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace morvellacinto::scripted {

/// Records failed assertions, then throws platform::AssertionFailure unless told to return.
class MORVELLACINTO_EXPORT ScriptedAssertionHandler final : public platform::AssertionHandler {
public:
    /// What was told of one failed assertion.
    struct Failure {
        std::string function;
        std::string file;
        int line = 0;
        std::string description;

        friend bool operator==(const Failure&, const Failure&) = default;
    };

    void handleFailureInFunction(std::string_view function, std::string_view file, int line,
                                 std::string_view description) override;

    void returnAfterFailure(bool returns) { returns_ = returns; } ///< at first not
    /// The failures since the last call, oldest first. Any thread.
    [[nodiscard]] std::vector<Failure> takeFailures();

private:
    std::mutex mutex_;
    std::vector<Failure> failures_;
    std::atomic<bool> returns_ = false;
};

} // namespace morvellacinto::scripted
