// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

namespace morvellacinto::service {

/// How one request is answered. What a step leaves out is as it would be without a scenario.
struct Step {
    std::optional<int> status;
    /// Sent as it is.
    std::optional<std::string> body;
    bool gzip = false;
    /// Before the first byte of the answer.
    std::chrono::duration<double> delay{0};
    std::optional<double> dripBytesPerSecond;
    bool closeBeforeHeaders = false;
    /// Where the answer sends the client, by status 307 unless the step has one.
    std::optional<std::string> redirect;
    /// Put into the answer's object as "serviceurl".
    std::optional<std::string> serviceUrl;
    /// The step as it was given.
    Value source;
};

/// The steps that wait for requests, one a request. Any thread.
class Scenario {
public:
    /// `steps` is an array of objects, as `--scenario` takes it. Throws std::invalid_argument,
    /// which names the step and the member that is wrong.
    explicit Scenario(const Array& steps = {});

    /// The next step; one without any member when none is left.
    [[nodiscard]] Step next();

    /// Puts others in place of those that wait; throws as the constructor does.
    void replace(const Array& steps);

    /// Those that wait, as they were given.
    [[nodiscard]] Array waiting() const;

private:
    mutable std::mutex mutex_;
    std::deque<Step> steps_;
};

} // namespace morvellacinto::service
