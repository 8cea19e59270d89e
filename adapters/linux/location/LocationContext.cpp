#include "LocationContext.h"

#include "GeoClueClient.h"
#include "GeoClueSession.h"
#include "threads/MainQueue.h"
#include "bus/Bus.h"

#include <algorithm>
#include <systemd/sd-bus.h>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr std::chrono::seconds lookInterval(2);

BusCall daemonCall(const char* member) {
    return {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", member, {}};
}

bool tellsOfService(const BusReply& reply) {
    if (reply.body.empty()) {
        return false;
    }
    const Value& answer = reply.body[0];
    const Array* names = answer.ifArray();
    return answer.isBool() ? answer.asBool()
                           : names != nullptr && std::find(names->begin(), names->end(),
                                                           Value(geoClueName)) != names->end();
}

} // namespace

LocationContext::LocationContext(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<Bus> bus,
                                 LocationOptions options)
    : mainQueue_(std::move(mainQueue)), bus_(std::move(bus)), options_(std::move(options)) {}

LocationPermission& LocationContext::permission() {
    if (!permission_.isUsable()) {
        lookForService();
    }
    return permission_;
}

const std::optional<std::string>& LocationContext::bundleIdentifier() {
    std::call_once(bundleSeen_, [this] { bundleIdentifier_ = options_.bundleIdentifier(); });
    return bundleIdentifier_;
}

void LocationContext::add(const std::shared_ptr<GeoClueClient>& client) {
    const std::lock_guard lock(mutex_);
    std::erase_if(clients_, [](const auto& known) { return known.expired(); });
    clients_.push_back(client);
}

void LocationContext::tellAuthorizationChange() {
    std::vector<std::weak_ptr<GeoClueClient>> clients;
    {
        const std::lock_guard lock(mutex_);
        clients = clients_;
    }
    for (const auto& known : clients) {
        if (const auto client = known.lock()) {
            client->authorizationChanged();
        }
    }
}

void LocationContext::lookForService() {
    {
        const std::lock_guard lock(mutex_);
        const auto now = LocationPermission::Clock::now();
        if (lastLook_ && now - *lastLook_ < lookInterval) {
            return;
        }
        lastLook_ = now;
    }
    if (!bundleIdentifier() || !options_.files.busExists()) {
        return;
    }
    if (options_.files.serviceExists()) {
        permission_.noteUsable();
        return;
    }
    bus_->post([context = weak_from_this()](BusConnection& connection) {
        if (const auto self = context.lock()) {
            self->askBus(connection);
        }
    });
}

// Whether somebody owns the name, or could be started to.
void LocationContext::askBus(BusConnection& connection) {
    BusCall isOwned = daemonCall("NameHasOwner");
    isOwned.arguments = [](sd_bus_message* message) {
        return sd_bus_message_append_basic(message, 's', std::string(geoClueName).c_str());
    };
    for (const BusCall& call : {isOwned, daemonCall("ListActivatableNames")}) {
        connection.call(call, [context = weak_from_this()](const BusReply& reply) {
            const auto self = context.lock();
            if (self != nullptr && tellsOfService(reply)) {
                self->serviceFound();
            }
        });
    }
}

void LocationContext::serviceFound() {
    if (permission_.noteUsable()) {
        mainQueue_->post([context = weak_from_this()] {
            if (const auto self = context.lock()) {
                self->tellAuthorizationChange();
            }
        });
    }
}

} // namespace morvellacinto::native
