// SPDX-License-Identifier: MIT
#include "BusConnection.h"

#include "BusValues.h"

#include <algorithm>
#include <map>
#include <poll.h>
#include <system_error>

namespace morvellacinto::native {

namespace {

// More than a service sends while a call waits; a peer that floods us takes no more memory.
constexpr std::size_t maximumSignals = 64;
constexpr std::chrono::milliseconds longestPoll = std::chrono::minutes(1);

std::string orEmpty(const char* text) { return text != nullptr ? text : ""; }

BusReply replyIn(sd_bus_message* message) {
    BusReply reply{{}, orEmpty(sd_bus_message_get_sender(message)), {}, {}};
    if (const sd_bus_error* error = sd_bus_message_get_error(message)) {
        reply.errorName = orEmpty(error->name);
        reply.errorMessage = orEmpty(error->message);
    } else {
        reply.body = valuesIn(message);
    }
    return reply;
}

} // namespace

std::function<int(sd_bus_message*)> oneText(std::string text) {
    return [text = std::move(text)](sd_bus_message* message) {
        return sd_bus_message_append_basic(message, 's', text.c_str());
    };
}

BusConnection::BusConnection(Bus& bus, int stop) : owner_(bus), stop_(stop) {
    sd_bus* opened = nullptr;
    const int result = sd_bus_open_system(&opened);
    bus_.reset(opened);
    if (result < 0) {
        owner_.tellTrouble("cannot be reached (" + std::generic_category().message(-result) + ")");
    }
}

std::vector<BusReply> BusConnection::callAll(const std::vector<BusCall>& calls,
                                             std::optional<Clock::time_point> deadline) {
    std::vector<BusReply> replies(calls.size());
    std::map<std::uint64_t, BusReply*> missing;
    for (std::size_t index = 0; index < calls.size(); ++index) {
        replies[index].errorName = BusError::disconnected;
        if (const auto cookie = send(calls[index])) {
            missing.emplace(*cookie, &replies[index]);
        }
    }
    while (!missing.empty()) {
        const Message message = receive(deadline.value_or(deadline_));
        std::uint64_t cookie = 0;
        if (message == nullptr) {
            break;
        }
        if (sd_bus_message_get_reply_cookie(message.get(), &cookie) < 0) {
            keepSignal(message.get());
        } else if (const auto found = missing.extract(cookie)) {
            *found.mapped() = replyIn(message.get());
        }
    }
    for (const auto& unanswered : missing) {
        unanswered.second->errorName = hasEnded() ? BusError::disconnected : BusError::timedOut;
    }
    if (!missing.empty() && !hasEnded() && !isReady_) {
        owner_.tellTrouble("accepts connections but does not answer");
    }
    return replies;
}

BusReply BusConnection::call(const BusCall& call, std::optional<Clock::time_point> deadline) {
    return std::move(callAll({call}, deadline).front());
}

void BusConnection::watch(const std::string& rule) {
    static_cast<void>(send({"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                            "AddMatch", oneText(rule)}));
}

std::optional<BusSignal> BusConnection::nextSignal(Clock::time_point deadline) {
    while (signals_.empty()) {
        const Message message = receive(deadline);
        if (message == nullptr) {
            return std::nullopt;
        }
        keepSignal(message.get());
    }
    std::optional<BusSignal> first = std::move(signals_.front());
    signals_.pop_front();
    return first;
}

// Gives the cookie that the answer will bear.
std::optional<std::uint64_t> BusConnection::send(const BusCall& call) {
    if (hasEnded()) {
        return std::nullopt;
    }
    sd_bus_message* created = nullptr;
    int result = sd_bus_message_new_method_call(bus_.get(), &created, call.destination.c_str(),
                                                call.path.c_str(), call.interface.c_str(),
                                                call.member.c_str());
    const Message message(created, sd_bus_message_unref);
    if (result >= 0 && call.arguments) {
        result = call.arguments(created);
    }
    std::uint64_t cookie = 0;
    if (result >= 0) {
        result = sd_bus_send(bus_.get(), created, &cookie);
    }
    return result >= 0 ? std::optional(cookie) : std::nullopt;
}

// The next message; null at the deadline and when the connection has ended. Whatever the bus sends,
// one message is taken at a time, with a look at deadline and stop before each.
BusConnection::Message BusConnection::receive(Clock::time_point deadline) {
    auto until = Clock::time_point::min();
    while (!hasEnded() && Clock::now() < deadline && !mustStop(until)) {
        sd_bus_message* received = nullptr;
        const int result = sd_bus_process(bus_.get(), &received);
        Message message(received, sd_bus_message_unref);
        if (result < 0 || sd_bus_is_open(bus_.get()) <= 0) {
            bus_.reset();
            if (!isReady_) {
                owner_.tellTrouble("refuses the connection");
            }
            break;
        }
        if (!isReady_ && sd_bus_is_ready(bus_.get()) > 0) {
            isReady_ = true;
            owner_.noteAnswer();
        }
        if (message != nullptr) {
            return message;
        }
        until = result == 0 ? deadline : Clock::time_point::min();
    }
    return {nullptr, sd_bus_message_unref};
}

// Waits for the bus, at most `until` then.
bool BusConnection::mustStop(Clock::time_point until) {
    const auto now = Clock::now();
    const auto left = until <= now ? std::chrono::milliseconds(0)
                                   : std::chrono::ceil<std::chrono::milliseconds>(
                                         std::min<Clock::duration>(until - now, longestPoll));
    pollfd waits[] = {{sd_bus_get_fd(bus_.get()), 0, 0},
                      {owner_.stopDescriptor(), POLLIN, 0},
                      {stop_, POLLIN, 0}};
    waits[0].events = static_cast<short>(std::max(sd_bus_get_events(bus_.get()), 0));
    poll(waits, std::size(waits), static_cast<int>(left.count()));
    if (waits[1].revents != 0 || waits[2].revents != 0) {
        bus_.reset();
    }
    return hasEnded();
}

void BusConnection::keepSignal(sd_bus_message* message) {
    if (sd_bus_message_is_signal(message, nullptr, nullptr) > 0 &&
        signals_.size() < maximumSignals) {
        signals_.push_back({orEmpty(sd_bus_message_get_sender(message)),
                            orEmpty(sd_bus_message_get_path(message)),
                            orEmpty(sd_bus_message_get_member(message)), valuesIn(message)});
    }
}

} // namespace morvellacinto::native
