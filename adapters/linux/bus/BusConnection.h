// SPDX-License-Identifier: MIT
#pragma once

#include "Bus.h"

#include "morvellacinto/foundation/Value.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>
#include <vector>

namespace morvellacinto::native {

/// A method call on the system bus.
struct BusCall {
    std::string destination;
    std::string path;
    std::string interface;
    std::string member;
    /// Appends the arguments; gives a negative errno when that fails. Empty: there are none.
    std::function<int(sd_bus_message*)> arguments = {};
};

/// The arguments of a call that takes one text.
[[nodiscard]] std::function<int(sd_bus_message*)> oneText(std::string text);

/// What came of a call.
struct BusReply {
    Array body;
    std::string sender; ///< the connection that answered
    /// The D-Bus name of the error; empty when the call succeeded.
    std::string errorName;
    std::string errorMessage;

    [[nodiscard]] bool succeeded() const noexcept { return errorName.empty(); }
};

struct BusSignal {
    std::string sender;
    std::string path;
    std::string member;
    Array body;
};

/// A connection for one question or one run of updates, used on one thread. Opening it waits for
/// nothing. Waits end at a deadline, and for good when the bus is lost, when the platform shuts
/// down or when `stop` polls readable: then the connection has ended, and calls fail at once.
class BusConnection {
public:
    using Clock = std::chrono::steady_clock;

    explicit BusConnection(Bus& bus, int stop = -1);
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;

    /// Sends all calls, then waits for the answers, given in the order of the calls. Without a
    /// deadline: until `busTimeout` after the connection was opened.
    [[nodiscard]] std::vector<BusReply> callAll(const std::vector<BusCall>& calls,
                                                std::optional<Clock::time_point> deadline = {});
    [[nodiscard]] BusReply call(const BusCall& call,
                                std::optional<Clock::time_point> deadline = {});

    /// Asks for the signals that a D-Bus match rule tells, without waiting.
    void watch(const std::string& rule);
    /// The next of these; nothing at the deadline or when the connection has ended.
    [[nodiscard]] std::optional<BusSignal> nextSignal(Clock::time_point deadline);

    [[nodiscard]] bool hasEnded() const noexcept { return bus_ == nullptr; }

private:
    using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

    [[nodiscard]] std::optional<std::uint64_t> send(const BusCall& call);
    [[nodiscard]] Message receive(Clock::time_point deadline);
    [[nodiscard]] bool mustStop(Clock::time_point until);
    void keepSignal(sd_bus_message* message);

    Bus& owner_;
    const int stop_;
    const Clock::time_point deadline_ = Clock::now() + busTimeout;
    // Closed without a flush, which would wait.
    std::unique_ptr<sd_bus, decltype(&sd_bus_close_unref)> bus_{nullptr, sd_bus_close_unref};
    std::deque<BusSignal> signals_;
    bool isReady_ = false;
};

} // namespace morvellacinto::native
