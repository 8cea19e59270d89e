#include "GeoClueSession.h"

#include "bus/BusValues.h"

#include <cmath>
#include <systemd/sd-bus.h>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr const char* managerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char* managerInterface = "org.freedesktop.GeoClue2.Manager";
constexpr const char* clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char* locationInterface = "org.freedesktop.GeoClue2.Location";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
// Gives every application a client of its own; daemons before 2.5 know only the second, which
// gives one to the whole connection.
constexpr const char* createClientMember = "CreateClient";
constexpr const char* getClientMember = "GetClient";
constexpr std::string_view switchedOffMessage = "Geolocation disabled";
constexpr std::uint32_t exactAccuracy = 8;
// The daemon may have to be started first; without an agent in the user's session it never answers.
// Nothing waits for a session's calls but the session, which has an alarm of its own.
constexpr std::chrono::seconds answerTimeout(5);

BusCall unhurried(BusCall call, std::chrono::milliseconds timeout = answerTimeout) {
    call.timeout = timeout;
    call.isUnhurried = true;
    return call;
}

BusCall managerCall(const char* member) {
    return unhurried({std::string(geoClueName), managerPath, managerInterface, member, {}});
}

BusCall clientCall(const std::string& client, const char* member) {
    return unhurried({std::string(geoClueName), client, clientInterface, member, {}});
}

BusCall setProperty(const std::string& client, const char* name,
                    std::function<int(sd_bus_message*)> appendValue) {
    return unhurried({std::string(geoClueName), client, propertiesInterface, "Set",
                      [name, appendValue = std::move(appendValue)](sd_bus_message* message) {
                          const int result =
                              sd_bus_message_append(message, "ss", clientInterface, name);
                          return result < 0 ? result : appendValue(message);
                      }});
}

void ignore(const BusReply& /*reply*/) {}

void deleteClient(BusConnection& connection, const std::string& client) {
    connection.call(clientCall(client, "Stop"), ignore);
    BusCall call = managerCall("DeleteClient");
    call.arguments = [client](sd_bus_message* message) {
        return sd_bus_message_append_basic(message, 'o', client.c_str());
    };
    connection.call(call, ignore);
}

std::optional<std::string> textAt(const Array& values, std::size_t index) {
    return index < values.size() && values[index].isString()
               ? std::optional(std::string(values[index].asString()))
               : std::nullopt;
}

std::optional<double> degrees(const Object& location, std::string_view key, double limit) {
    const auto value = doubleMember(location, key);
    return value && std::abs(*value) <= limit ? value : std::nullopt;
}

double knownOrMinusOne(const Object& location, std::string_view key) {
    const double value = doubleMember(location, key).value_or(-1);
    return std::isfinite(value) && value >= 0 ? value : -1;
}

LocationErrorCode codeFor(const std::string& errorName) {
    if (errorName == BusError::noReply) {
        return LocationErrorCode::timedOut;
    }
    const bool isAbsent = errorName == BusError::serviceUnknown ||
                          errorName == BusError::disconnected ||
                          errorName.starts_with("org.freedesktop.DBus.Error.Spawn.");
    return isAbsent ? LocationErrorCode::unavailable : LocationErrorCode::other;
}

} // namespace

GeoClueSession::GeoClueSession(std::string desktopId, std::chrono::milliseconds timeout, Tell tell)
    : desktopId_(std::move(desktopId)), timeout_(timeout), tell_(std::move(tell)) {}

template <class Argument>
auto GeoClueSession::whileAlive(void (GeoClueSession::*handle)(const Argument&)) {
    return [session = weak_from_this(), handle](const Argument& argument) {
        const auto self = session.lock();
        if (self != nullptr && self->phase_ != Phase::ended) {
            (*self.*handle)(argument);
        }
    };
}

void GeoClueSession::start(BusConnection& connection) {
    if (phase_ != Phase::idle) { // stopped before it began
        return;
    }
    connection_ = &connection;
    // This one keeps the session alive.
    loss_ = connection.onLoss([self = shared_from_this()] {
        self->client_.clear();
        self->failWith({self->phase_ == Phase::running ? LocationErrorCode::lost
                                                       : LocationErrorCode::unavailable,
                        "the system bus is gone"});
    });
    owner_ =
        connection.subscribe({"org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "NameOwnerChanged", std::string(geoClueName)},
                             whileAlive(&GeoClueSession::ownerChanged));
    createClient(createClientMember);
}

void GeoClueSession::stop(BusConnection& connection) {
    connection_ = &connection;
    static_cast<void>(end());
}

void GeoClueSession::createClient(const char* member) {
    phase_ = Phase::starting;
    if (alarm_ == 0) {
        alarm_ = connection_->after(timeout_, [session = weak_from_this()] {
            if (const auto self = session.lock()) {
                self->failWith({LocationErrorCode::timedOut, "no location came in time"});
            }
        });
    }
    connection_->call(managerCall(member),
                      [self = shared_from_this(), member](const BusReply& reply) {
                          self->clientCreated(reply, member);
                      });
}

void GeoClueSession::clientCreated(const BusReply& reply, const char* member) {
    const auto client = textAt(reply.body, 0);
    if (phase_ == Phase::ended) {
        if (client) {
            deleteClient(*connection_, *client);
        }
        return;
    }
    if (reply.errorName == BusError::unknownMethod &&
        std::string_view(member) == createClientMember) {
        createClient(getClientMember);
    } else if (client) {
        client_ = *client;
        startClient();
    } else {
        failWithReply(reply);
    }
}

void GeoClueSession::startClient() {
    updates_ = connection_->subscribe(
        {std::string(geoClueName), client_, clientInterface, "LocationUpdated"},
        whileAlive(&GeoClueSession::locationUpdated));
    changes_ = connection_->subscribe(
        {std::string(geoClueName), client_, propertiesInterface, "PropertiesChanged"},
        whileAlive(&GeoClueSession::propertiesChanged));
    const BusCall settings[] = {
        setProperty(client_, "DesktopId",
                    [id = desktopId_](sd_bus_message* message) {
                        return sd_bus_message_append(message, "v", "s", id.c_str());
                    }),
        setProperty(client_, "RequestedAccuracyLevel",
                    [](sd_bus_message* message) {
                        return sd_bus_message_append(message, "v", "u", exactAccuracy);
                    }),
    };
    for (const BusCall& setting : settings) {
        connection_->call(setting, ignore); // a start that misses one is refused
    }
    // The user may be asked meanwhile; the alarm comes first when nobody answers.
    connection_->call(unhurried(clientCall(client_, "Start"), timeout_ + answerTimeout),
                      whileAlive(&GeoClueSession::clientStarted));
}

void GeoClueSession::clientStarted(const BusReply& reply) {
    if (!reply.succeeded()) {
        failWithReply(reply);
        return;
    }
    phase_ = Phase::running;
    tell_(SessionEvent::Started());
}

void GeoClueSession::locationUpdated(const Array& paths) {
    if (const auto path = textAt(paths, 1)) {
        connection_->call(
            unhurried(readProperties(std::string(geoClueName), *path, locationInterface)),
            whileAlive(&GeoClueSession::locationRead));
    }
}

void GeoClueSession::locationRead(const BusReply& reply) {
    const Object location = propertiesIn(reply);
    const auto latitude = degrees(location, "Latitude", 90);
    const auto longitude = degrees(location, "Longitude", 180);
    if (!latitude || !longitude) {
        return;
    }
    connection_->cancel(std::exchange(alarm_, 0));
    tell_(platform::LocationFix{*latitude, *longitude, knownOrMinusOne(location, "Speed"),
                                knownOrMinusOne(location, "Heading")});
}

void GeoClueSession::propertiesChanged(const Array& change) {
    const Object* changed = change.size() > 1 ? change[1].ifObject() : nullptr;
    const auto active = changed != nullptr ? boolMember(*changed, "Active") : std::nullopt;
    if (active && std::exchange(isActive_, *active) != *active) {
        tell_(SessionEvent::Switched{*active});
    }
}

void GeoClueSession::ownerChanged(const Array& change) {
    // A call under way fails by itself.
    if (textAt(change, 1).value_or("").empty() || phase_ != Phase::running) {
        return;
    }
    client_.clear(); // it went with its daemon
    forgetClient();
    createClient(createClientMember);
}

void GeoClueSession::forgetClient() {
    connection_->cancel(std::exchange(updates_, 0));
    connection_->cancel(std::exchange(changes_, 0));
    isActive_ = true;
    if (!client_.empty()) {
        deleteClient(*connection_, std::exchange(client_, {}));
    }
}

GeoClueSession::Tell GeoClueSession::end() {
    if (std::exchange(phase_, Phase::ended) == Phase::ended) {
        return [](const SessionEvent::Any&) {};
    }
    const auto self = shared_from_this();
    forgetClient();
    for (auto* ticket : {&alarm_, &owner_, &loss_}) {
        connection_->cancel(std::exchange(*ticket, 0));
    }
    return std::exchange(tell_, nullptr);
}

void GeoClueSession::failWith(SessionEvent::Failed failure) { end()(failure); }

void GeoClueSession::failWithReply(const BusReply& reply) {
    if (reply.succeeded()) {
        failWith({LocationErrorCode::other, "the location service gave a malformed answer"});
    } else if (reply.errorName == BusError::accessDenied) {
        end()(SessionEvent::Refused{reply.errorMessage.starts_with(switchedOffMessage),
                                    reply.errorMessage});
    } else {
        failWith({codeFor(reply.errorName), reply.errorName + ": " + reply.errorMessage});
    }
}

} // namespace morvellacinto::native
