// SPDX-License-Identifier: MIT
#pragma once

// The contracts of the platform interfaces as tests for any implementation. A test program links
// morvellacinto_contract, writes a Subject for its implementation and defines makeSubject().

#include "morvellacinto/platform/HttpSession.h"
#include "morvellacinto/platform/Platform.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace morvellacinto::contract {

/// Made and used on the thread that is to be the main one.
struct Subject {
    virtual ~Subject() = default;

    [[nodiscard]] virtual platform::Platform& platform() = 0;

    /// Lets all work go on until `done` holds; false when that takes too long. What escaped from a
    /// block leaves through here.
    [[nodiscard]] virtual bool pumpUntil(const std::function<bool()>& done) = 0;

    /// An absolute URL at which each request is recorded and answered with that.
    [[nodiscard]] virtual std::string serve(int status, const std::string& body) = 0;
    /// The requests that have reached `serve`'s URLs, oldest first, each as HTTP would have it.
    [[nodiscard]] virtual std::vector<std::string> received() = 0;
};

[[nodiscard]] std::unique_ptr<Subject> makeSubject();

} // namespace morvellacinto::contract
