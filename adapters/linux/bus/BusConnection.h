#pragma once

#include "BusCall.h"
#include "Diagnostics.h"
#include "SilentNames.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

struct sd_bus;
struct sd_bus_message;
struct sd_bus_slot;

struct pollfd;

namespace morvellacinto::native {

/// The connection to the system bus, made when it is first needed and again after it was lost. It
/// belongs to the bus's thread: nothing here may be used on another, and every handler runs there.
/// Handlers must neither block nor throw.
class BusConnection {
public:
    using Clock = std::chrono::steady_clock;
    using Handler = std::function<void(const BusReply&)>;
    using SignalHandler = std::function<void(const Array& body)>;
    using Task = std::function<void()>;
    /// Names something that can be cancelled; 0 names nothing.
    using Ticket = std::uint64_t;

    struct SignalFilter {
        std::string sender;
        std::string path;
        std::string interface;
        std::string member;
        /// What the signal's first argument must be; empty: anything.
        std::string firstArgument = {};
    };

    BusConnection(SilentNames& silentNames, Diagnostics diagnostics);
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;
    ~BusConnection();

    /// `handler` is called once, never before this returns: with the answer, with the service's
    /// error, with `BusError::noReply` when the time-out has passed, or with
    /// `BusError::disconnected` when there is no bus or the connection is lost.
    void call(const BusCall& call, Handler handler);
    /// The same with a time at which to give up, whatever the call's own time-out is.
    void callUntil(const BusCall& call, Clock::time_point deadline, Handler handler);

    /// Until cancelled, or until the connection is lost.
    Ticket subscribe(const SignalFilter& filter, SignalHandler handler);
    /// Calls `handler` once when the connection is lost.
    Ticket onLoss(Task handler);
    Ticket after(std::chrono::milliseconds delay, Task task);
    /// Without effect on what has happened already; 0 is allowed.
    void cancel(Ticket ticket);

    /// Whether nobody waits for anything of the bus.
    [[nodiscard]] bool isIdle() const noexcept;
    /// What to poll for, if there is a connection.
    [[nodiscard]] std::optional<pollfd> waitsFor() const;
    /// When `process` must be called at the latest.
    [[nodiscard]] Clock::time_point nextDeadline() const;
    /// Reads, writes and calls the handlers that are due.
    void process();
    /// Fails what is under way and forgets the rest; what is called afterwards fails too.
    void shutdown();
    /// Closes an idle connection.
    void close();

private:
    struct Pending;
    struct Subscription;
    struct CloseBus {
        void operator()(sd_bus* bus) const;
    };
    struct ReleaseSlot {
        void operator()(sd_bus_slot* slot) const;
    };
    struct ReleaseMessage {
        void operator()(sd_bus_message* message) const;
    };
    using Slot = std::unique_ptr<sd_bus_slot, ReleaseSlot>;
    using Message = std::unique_ptr<sd_bus_message, ReleaseMessage>;
    struct Alarm {
        Clock::time_point due;
        Task task;
    };

    [[nodiscard]] int open();
    [[nodiscard]] int compose(const BusCall& call, Message& message);
    void tell(const std::string& sentence);
    void lose();
    void expire();
    void runDue();
    void finish(std::uint64_t number, BusReply reply);

    SilentNames& silentNames_;
    const Diagnostics diagnostics_;
    std::unique_ptr<sd_bus, CloseBus> bus_; // before the slots, which must go first
    std::map<std::uint64_t, std::unique_ptr<Pending>> pending_;
    std::map<Ticket, std::unique_ptr<Subscription>> subscriptions_;
    std::map<Ticket, Task> lossHandlers_;
    std::map<Ticket, Alarm> alarms_;
    std::deque<Task> due_;
    std::uint64_t lastNumber_ = 0;
    bool wasReady_ = false; // this connection
    bool told_ = false;
    bool ended_ = false;
};

} // namespace morvellacinto::native
