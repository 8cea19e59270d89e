#include "NativeLocation.h"

#include "GeoClueClient.h"
#include "LocationContext.h"

#include <utility>

namespace morvellacinto::native {

NativeLocation::NativeLocation(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<Bus> bus,
                               LocationOptions options)
    : context_(std::make_shared<LocationContext>(std::move(mainQueue), std::move(bus),
                                                 std::move(options))) {}

NativeLocation::~NativeLocation() = default;

std::shared_ptr<platform::LocationService> NativeLocation::makeService() {
    auto client = std::make_shared<GeoClueClient>(context_);
    context_->add(client);
    return client;
}

bool NativeLocation::locationServicesEnabled() const {
    return context_->permission().servicesEnabled();
}

std::int32_t NativeLocation::authorizationStatus() const {
    return context_->permission().authorizationStatus();
}

} // namespace morvellacinto::native
