#pragma once

#include "bus/BusConnection.h"

#include "morvellacinto/platform/LocationService.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <variant>

#include <morvellacinto/native/LocationError.h>

namespace morvellacinto::native {

inline constexpr std::string_view geoClueName = "org.freedesktop.GeoClue2";

/// What a session tells; after a failure or a refusal it has ended.
namespace SessionEvent {
/// The daemon serves the application.
struct Started {};
/// Location is switched off for the device, or on again, while the session goes on.
struct Switched {
    bool on = false;
};
struct Refused {
    bool isSwitchedOff = false;
    std::string message;
};
struct Failed {
    LocationErrorCode code = LocationErrorCode::other;
    std::string message;
};
using Any = std::variant<platform::LocationFix, Started, Switched, Refused, Failed>;
} // namespace SessionEvent

/// One run of location updates: a client of GeoClue's from its creation to its deletion, at the
/// service's finest accuracy. When the daemon ends while fixes come, a new client takes over.
///
/// Everything happens on the bus's thread, the calls of `tell` too; the connection must outlive the
/// session or be lost. It keeps itself alive from `start` until it has ended or been stopped.
class GeoClueSession : public std::enable_shared_from_this<GeoClueSession> {
public:
    using Tell = std::function<void(const SessionEvent::Any& event)>;

    /// Without a fix for `timeout` after the start, or after a restart of the daemon, it fails.
    GeoClueSession(std::string desktopId, std::chrono::milliseconds timeout, Tell tell);

    void start(BusConnection& connection);
    /// Nothing is told afterwards.
    void stop(BusConnection& connection);

private:
    enum class Phase { idle, starting, running, ended };

    template <class Argument>
    [[nodiscard]] auto whileAlive(void (GeoClueSession::*handle)(const Argument&));
    void createClient(const char* member);
    void clientCreated(const BusReply& reply, const char* member);
    void startClient();
    void clientStarted(const BusReply& reply);
    void locationUpdated(const Array& paths);
    void locationRead(const BusReply& reply);
    void propertiesChanged(const Array& change);
    void ownerChanged(const Array& change);
    void forgetClient();
    /// Gives the function that takes the last word.
    [[nodiscard]] Tell end();
    void failWith(SessionEvent::Failed failure);
    void failWithReply(const BusReply& reply);

    const std::string desktopId_;
    const std::chrono::milliseconds timeout_;
    Tell tell_;
    Phase phase_ = Phase::idle;
    BusConnection* connection_ = nullptr;
    std::string client_;
    bool isActive_ = true;
    BusConnection::Ticket alarm_ = 0;
    BusConnection::Ticket loss_ = 0;
    BusConnection::Ticket owner_ = 0;
    BusConnection::Ticket updates_ = 0;
    BusConnection::Ticket changes_ = 0;
};

} // namespace morvellacinto::native
