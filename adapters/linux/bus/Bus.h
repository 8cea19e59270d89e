#pragma once

#include "BusCall.h"
#include "Diagnostics.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace morvellacinto::native {

class BusConnection;

/// The system bus for all services: one connection, used on one thread that is started at first
/// use, blocks all signals and ends, with the connection, when nobody has waited for anything for
/// some time.
///
/// All operations may be called on any thread. In a child made by fork() a bus does nothing, and
/// calls fail.
class Bus {
public:
    using Task = std::function<void(BusConnection&)>;

    explicit Bus(Diagnostics diagnostics,
                 std::chrono::milliseconds idleLimit = std::chrono::seconds(15));
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    /// As `shutdown`.
    ~Bus();

    /// Waits for the answer, at most for the call's time-out; after a time-out the name fails at
    /// once for two seconds. On the bus's own thread it fails at once too.
    [[nodiscard]] BusReply call(BusCall call);
    /// Makes all calls at once and waits for them together; answers in the order of the calls.
    [[nodiscard]] std::vector<BusReply> callAll(const std::vector<BusCall>& calls);

    /// Runs `task` on the bus's thread. False, and dropped, after `shutdown` and when no thread can
    /// be made.
    bool post(Task task);

    /// Closes the connection, fails the calls that wait, and joins the thread unless called on it.
    void shutdown();

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace morvellacinto::native
