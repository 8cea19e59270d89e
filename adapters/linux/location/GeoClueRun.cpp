// SPDX-License-Identifier: MIT
#include "GeoClueRun.h"

#include "LocationPermission.h"
#include "bus/BusValues.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <systemd/sd-bus.h>

namespace morvellacinto::native {

namespace {

using Clock = BusConnection::Clock;

constexpr const char* serviceName = "org.freedesktop.GeoClue2";
constexpr const char* clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char* ownerRule =
    "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged',arg0='org.freedesktop.GeoClue2'";
constexpr std::string_view switchedOffMessage = "Geolocation disabled";
constexpr std::uint32_t exactAccuracy = 8;
// The daemon may have to be started first; without an agent in the user's session it never answers.
constexpr std::chrono::seconds answerTimeout(5);

template <class T>
BusCall setProperty(const std::string& client, const char* name, const char* type, T value) {
    return {serviceName, client, "org.freedesktop.DBus.Properties", "Set",
            [=](sd_bus_message* message) {
                return sd_bus_message_append(message, "ssv", clientInterface, name, type, value);
            }};
}

// Where the daemon does not know one, it says less.
std::optional<double> numberIn(const Object& location, std::string_view key, double least = 0,
                               double most = std::numeric_limits<double>::max()) {
    const auto value = doubleMember(location, key);
    return value && *value >= least && *value <= most ? value : std::nullopt;
}

// Of seconds and microseconds; seconds of 0 stand for none.
std::optional<Date> timeIn(const Object& location) {
    const Value* const time = location.find("Timestamp");
    const Array* const parts = time != nullptr ? time->ifArray() : nullptr;
    return parts != nullptr && parts->size() == 2 && parts->at(0).isNumber() &&
                   parts->at(1).isNumber() && parts->at(0) != Value(0)
               ? std::optional(Date{parts->at(0).asDouble() + parts->at(1).asDouble() / 1e6})
               : std::nullopt;
}

} // namespace

KRError locationError(LocationErrorCode code, std::string_view message) {
    return {std::string(locationErrorDomain),
            static_cast<std::int64_t>(code),
            {{KRError::messageKey, message}}};
}

GeoClueRun::GeoClueRun(Bus& bus, LocationPermission& permission, std::string desktopId,
                       std::chrono::milliseconds timeout, Tell tell)
    : bus_(bus), permission_(permission), desktopId_(std::move(desktopId)), timeout_(timeout),
      tell_(std::move(tell)) {}

void GeoClueRun::run() {
    try {
        followUpdates();
    } catch (const std::exception& exception) {
        fail(LocationErrorCode::other, exception.what());
    }
}

void GeoClueRun::followUpdates() {
    deadline_ = Clock::now() + timeout_;
    BusConnection connection(bus_, stop_.descriptor());
    connection.watch(ownerRule);
    const BusReply created = connection.call({serviceName, "/org/freedesktop/GeoClue2/Manager",
                                              "org.freedesktop.GeoClue2.Manager", "CreateClient"},
                                             std::min(deadline_, Clock::now() + answerTimeout));
    const std::string client = textAt(created.body, 0);
    if (client.empty()) {
        failWith(created);
        return;
    }
    connection.watch("type='signal',sender='org.freedesktop.GeoClue2',path='" + client + "'");
    // A start that misses a setting is refused. The user may be asked meanwhile.
    const auto started =
        connection.callAll({setProperty(client, "DesktopId", "s", desktopId_.c_str()),
                            setProperty(client, "RequestedAccuracyLevel", "u", exactAccuracy),
                            {serviceName, client, clientInterface, "Start"}},
                           deadline_);
    if (!started.back().succeeded()) {
        failWith(started.back());
        return;
    }
    if (permission_.noteAllowed()) {
        tell_(*this, {});
    }
    while (const auto signal = connection.nextSignal(deadline_)) {
        const bool isClients = signal->sender == created.sender && signal->path == client;
        if (isClients && signal->member == "LocationUpdated") {
            locationUpdated(connection, signal->body);
        } else if (isClients && signal->member == "PropertiesChanged") {
            propertiesChanged(signal->body);
        } else if (signal->member == "NameOwnerChanged" &&
                   textAt(signal->body, 1) == created.sender) {
            fail(LocationErrorCode::lost, "the location service has ended");
            return;
        }
    }
    if (connection.hasEnded()) {
        fail(LocationErrorCode::lost, "the system bus is gone");
    } else {
        fail(LocationErrorCode::timedOut, "no location came in time");
    }
}

void GeoClueRun::locationUpdated(BusConnection& connection, const Array& paths) {
    const BusReply reply = connection.call(
        readProperties(serviceName, textAt(paths, 1), "org.freedesktop.GeoClue2.Location"),
        Clock::now() + answerTimeout);
    const Object location = objectAt(reply.body, 0);
    const auto latitude = numberIn(location, "Latitude", -90, 90);
    const auto longitude = numberIn(location, "Longitude", -180, 180);
    if (!latitude || !longitude) {
        return;
    }
    const auto time = timeIn(location);
    if (time && time->secondsSinceReference < oldest_.count()) {
        return;
    }
    deadline_ = Clock::time_point::max();
    tell_(*this,
          {platform::LocationFix{*latitude, *longitude, numberIn(location, "Speed").value_or(-1),
                                 numberIn(location, "Heading").value_or(-1), time,
                                 numberIn(location, "Accuracy")}});
}

// The daemon goes on by itself when location is switched on again.
void GeoClueRun::propertiesChanged(const Array& change) {
    const auto active = boolMember(objectAt(change, 1), "Active");
    if (!active || std::exchange(isActive_, *active) == *active) {
        return;
    }
    permission_.noteAllowed();
    if (!*active) {
        permission_.note(LocationPermission::Refusal::switchedOff);
    }
    tell_(*this, {});
}

void GeoClueRun::failWith(const BusReply& reply) {
    using Refusal = LocationPermission::Refusal;
    if (stop_.isRaised()) { // which tells nothing of the service
        return;
    }
    const std::string_view name = reply.errorName;
    const bool isDenied = name == BusError::accessDenied;
    const bool isAbsent = name == BusError::serviceUnknown || name == BusError::disconnected ||
                          name.starts_with("org.freedesktop.DBus.Error.Spawn.");
    if (isAbsent) {
        permission_.note(Refusal::absent);
    } else if (isDenied) {
        permission_.note(Refusal::denied);
        if (reply.errorMessage.starts_with(switchedOffMessage)) {
            permission_.note(Refusal::switchedOff);
        }
        tell_(*this, {});
    }
    const auto code = isAbsent                     ? LocationErrorCode::unavailable
                      : isDenied                   ? LocationErrorCode::denied
                      : name == BusError::timedOut ? LocationErrorCode::timedOut
                      : name == BusError::noReply  ? LocationErrorCode::lost
                                                   : LocationErrorCode::other;
    fail(code, reply.succeeded() ? "the location service gave a malformed answer"
                                 : reply.errorName + ": " + reply.errorMessage);
}

void GeoClueRun::fail(LocationErrorCode code, std::string_view message) {
    if (!stop_.isRaised()) {
        tell_(*this, {{}, locationError(code, message)});
    }
}

} // namespace morvellacinto::native
