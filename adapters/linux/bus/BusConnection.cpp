#include "BusConnection.h"

#include "BusValues.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <system_error>
#include <systemd/sd-bus.h>
#include <utility>

namespace morvellacinto::native {

namespace {

// Stands for the bus itself among the silent names.
constexpr const char* wholeBus = "";
// Messages handled between two looks at what else there is to do.
constexpr int messagesARound = 64;

BusReply failure(std::string_view name, std::string_view message = "") {
    return {{}, std::string(name), std::string(message)};
}

BusReply replyIn(sd_bus_message* message) {
    const sd_bus_error* error = sd_bus_message_get_error(message);
    if (error == nullptr) {
        return {valuesIn(message), {}, {}};
    }
    return failure(error->name, error->message != nullptr ? error->message : "");
}

std::string ruleFor(const BusConnection::SignalFilter& filter) {
    std::string rule = "type='signal',sender='" + filter.sender + "',path='" + filter.path +
                       "',interface='" + filter.interface + "',member='" + filter.member + "'";
    return filter.firstArgument.empty() ? rule : rule + ",arg0='" + filter.firstArgument + "'";
}

} // namespace

struct BusConnection::Pending {
    BusConnection& owner;
    std::uint64_t number;
    std::string destination;
    bool isUnhurried;
    Clock::time_point deadline;
    Handler handler;
    Slot slot = nullptr;

    static int answered(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
        auto& pending = *static_cast<Pending*>(self);
        BusConnection& owner = pending.owner;
        if (sd_bus_is_ready(owner.bus_.get()) > 0) { // else it is no answer of the bus
            owner.told_ = false;
        }
        owner.finish(pending.number, replyIn(message));
        return 0;
    }
};

struct BusConnection::Subscription {
    BusConnection& owner;
    Ticket ticket;
    SignalHandler handler;
    Slot slot = nullptr;

    static int received(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
        const auto& subscription = *static_cast<Subscription*>(self);
        BusConnection& owner = subscription.owner;
        owner.due_.push_back([&owner, ticket = subscription.ticket, body = valuesIn(message)] {
            const auto found = owner.subscriptions_.find(ticket);
            if (found != owner.subscriptions_.end()) {
                const SignalHandler handle = found->second->handler; // it may cancel itself
                handle(body);
            }
        });
        return 0;
    }

    // Without this the connection would be closed when the bus refuses the subscription.
    static int installed(sd_bus_message* /*message*/, void* /*self*/, sd_bus_error* /*error*/) {
        return 0;
    }
};

void BusConnection::CloseBus::operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }

void BusConnection::ReleaseSlot::operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }

void BusConnection::ReleaseMessage::operator()(sd_bus_message* message) const {
    sd_bus_message_unref(message);
}

BusConnection::BusConnection(SilentNames& silentNames, Diagnostics diagnostics)
    : silentNames_(silentNames), diagnostics_(std::move(diagnostics)) {}

BusConnection::~BusConnection() = default;

void BusConnection::call(const BusCall& call, Handler handler) {
    const auto deadline = Clock::now() + call.timeout;
    callUntil(call, deadline, std::move(handler));
}

void BusConnection::callUntil(const BusCall& call, Clock::time_point deadline, Handler handler) {
    const auto refuse = [&](std::string_view name) {
        due_.push_back([handler, reply = failure(name)] { handler(reply); });
    };
    if (open() < 0) {
        refuse(BusError::disconnected);
        return;
    }
    const bool isSilent = !call.isUnhurried && silentNames_.contains(call.destination);
    if (isSilent || deadline <= Clock::now()) {
        refuse(BusError::noReply);
        return;
    }
    auto pending =
        std::make_unique<Pending>(Pending{*this, ++lastNumber_, call.destination, call.isUnhurried,
                                          deadline, std::move(handler), nullptr});
    Message message;
    sd_bus_slot* slot = nullptr;
    int result = compose(call, message);
    if (result >= 0) {
        result = sd_bus_call_async(bus_.get(), &slot, message.get(), Pending::answered,
                                   pending.get(), UINT64_MAX);
    }
    pending->slot.reset(slot);
    const auto number = pending->number;
    pending_.emplace(number, std::move(pending));
    if (result < 0) {
        finish(number, failure(BusError::disconnected, std::generic_category().message(-result)));
    }
}

BusConnection::Ticket BusConnection::subscribe(const SignalFilter& filter, SignalHandler handler) {
    if (open() < 0) {
        return 0;
    }
    auto subscription =
        std::make_unique<Subscription>(Subscription{*this, ++lastNumber_, std::move(handler)});
    sd_bus_slot* slot = nullptr;
    const int result =
        sd_bus_add_match_async(bus_.get(), &slot, ruleFor(filter).c_str(), Subscription::received,
                               Subscription::installed, subscription.get());
    if (result < 0) {
        return 0;
    }
    subscription->slot.reset(slot);
    const Ticket ticket = subscription->ticket;
    subscriptions_.emplace(ticket, std::move(subscription));
    return ticket;
}

BusConnection::Ticket BusConnection::onLoss(Task handler) {
    lossHandlers_.emplace(++lastNumber_, std::move(handler));
    return lastNumber_;
}

BusConnection::Ticket BusConnection::after(std::chrono::milliseconds delay, Task task) {
    alarms_.emplace(++lastNumber_, Alarm{Clock::now() + delay, std::move(task)});
    return lastNumber_;
}

void BusConnection::cancel(Ticket ticket) {
    subscriptions_.erase(ticket);
    lossHandlers_.erase(ticket);
    alarms_.erase(ticket);
}

bool BusConnection::isIdle() const noexcept {
    return pending_.empty() && subscriptions_.empty() && lossHandlers_.empty() && alarms_.empty() &&
           due_.empty();
}

std::optional<pollfd> BusConnection::waitsFor() const {
    if (bus_ == nullptr) {
        return std::nullopt;
    }
    const int events = sd_bus_get_events(bus_.get());
    return pollfd{sd_bus_get_fd(bus_.get()), static_cast<short>(std::max(events, 0)), 0};
}

BusConnection::Clock::time_point BusConnection::nextDeadline() const {
    if (!due_.empty()) {
        return Clock::time_point::min();
    }
    auto next = Clock::time_point::max();
    for (const auto& entry : pending_) {
        next = std::min(next, entry.second->deadline);
    }
    for (const auto& entry : alarms_) {
        next = std::min(next, entry.second.due);
    }
    std::uint64_t timeout = UINT64_MAX; // on the monotonic clock, as this Clock is
    if (bus_ != nullptr && sd_bus_get_timeout(bus_.get(), &timeout) >= 0 && timeout != UINT64_MAX) {
        next = std::min(next, Clock::time_point(std::chrono::microseconds(timeout)));
    }
    return next;
}

void BusConnection::process() {
    int result = bus_ != nullptr ? 1 : 0;
    for (int count = 0; result > 0 && count < messagesARound; ++count) {
        result = sd_bus_process(bus_.get(), nullptr);
        wasReady_ = wasReady_ || sd_bus_is_ready(bus_.get()) > 0;
    }
    if (bus_ != nullptr && (result < 0 || sd_bus_is_open(bus_.get()) <= 0)) {
        if (wasReady_) {
            tell("the connection to the system bus was lost; it will be made again when needed");
        } else {
            silentNames_.add(wholeBus);
            tell("the system bus refuses the connection; what it would tell counts as unknown");
        }
        lose();
    }
    runDue();
    expire();
    runDue();
}

void BusConnection::shutdown() {
    ended_ = true;
    alarms_.clear();
    lossHandlers_.clear();
    lose();
    runDue();
}

void BusConnection::close() { bus_.reset(); }

int BusConnection::open() {
    if (ended_) {
        return -ESHUTDOWN;
    }
    if (bus_ != nullptr) {
        return 0;
    }
    if (silentNames_.contains(wholeBus)) {
        return -ETIMEDOUT;
    }
    sd_bus* bus = nullptr;
    const int result = sd_bus_open_system(&bus);
    bus_.reset(bus);
    wasReady_ = false;
    if (result < 0) {
        tell("the system bus cannot be reached (" + std::generic_category().message(-result) +
             "); what it would tell counts as unknown");
    }
    return result;
}

int BusConnection::compose(const BusCall& call, Message& message) {
    sd_bus_message* created = nullptr;
    const int result = sd_bus_message_new_method_call(bus_.get(), &created,
                                                      call.destination.c_str(), call.path.c_str(),
                                                      call.interface.c_str(), call.member.c_str());
    message.reset(created);
    return result >= 0 && call.arguments ? call.arguments(created) : result;
}

// Once, until the bus has answered again.
void BusConnection::tell(const std::string& sentence) {
    if (!std::exchange(told_, true)) {
        diagnostics_(sentence);
    }
}

void BusConnection::lose() {
    while (!pending_.empty()) {
        finish(pending_.begin()->first, failure(BusError::disconnected));
    }
    subscriptions_.clear();
    for (auto& entry : std::exchange(lossHandlers_, {})) {
        due_.push_back(std::move(entry.second));
    }
    bus_.reset();
}

void BusConnection::expire() {
    const auto now = Clock::now();
    bool isConnecting = false;
    for (auto entry = pending_.begin(); entry != pending_.end();) {
        const Pending& pending = *(entry++)->second;
        if (pending.deadline > now) {
            continue;
        }
        if (sd_bus_is_ready(bus_.get()) <= 0) {
            isConnecting = true;
        } else if (!pending.isUnhurried) {
            silentNames_.add(pending.destination);
        }
        finish(pending.number, failure(BusError::noReply));
    }
    if (isConnecting) {
        silentNames_.add(wholeBus);
        tell("the system bus accepts connections but does not answer; what it would tell counts "
             "as unknown");
        lose();
    }
    for (auto entry = alarms_.begin(); entry != alarms_.end();) {
        if (entry->second.due > now) {
            ++entry;
            continue;
        }
        due_.push_back(std::move(entry->second.task));
        entry = alarms_.erase(entry);
    }
}

void BusConnection::runDue() {
    while (!due_.empty()) {
        const Task task = std::move(due_.front());
        due_.pop_front();
        task();
    }
}

void BusConnection::finish(std::uint64_t number, BusReply reply) {
    const auto found = pending_.find(number);
    due_.push_back([handler = std::move(found->second->handler), reply = std::move(reply)] {
        handler(reply);
    });
    pending_.erase(found);
}

} // namespace morvellacinto::native
