#include "NativeLocation.h"

#include "GeoClueClient.h"
#include "threads/MainQueue.h"
#include "threads/WorkerPool.h"

#include <utility>

namespace morvellacinto::native {

NativeLocation::NativeLocation(const std::shared_ptr<MainQueue>& mainQueue, Bus& bus,
                               WorkerPool& workers, LocationOptions options)
    : mainQueue_(mainQueue), bus_(bus), options_(std::move(options)),
      permission_([this] { return options_.bundleIdentifier && options_.serviceExists(); }),
      workers_(&workers) {}

std::shared_ptr<platform::LocationService> NativeLocation::makeService() {
    auto client = std::make_shared<GeoClueClient>(shared_from_this());
    const std::lock_guard lock(mutex_);
    std::erase_if(clients_, [](const auto& known) { return known.expired(); });
    clients_.push_back(client);
    return client;
}

bool NativeLocation::locationServicesEnabled() const { return permission_.servicesEnabled(); }

std::int32_t NativeLocation::authorizationStatus() const {
    return permission_.authorizationStatus();
}

void NativeLocation::postToMain(std::function<void()> block) const {
    if (const auto queue = mainQueue_.lock()) {
        queue->post(std::move(block));
    }
}

void NativeLocation::startThread(std::function<void()> block) {
    const std::lock_guard lock(mutex_);
    if (workers_ != nullptr) {
        workers_->postLasting(std::move(block));
    }
}

void NativeLocation::tellAuthorizationChange() {
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

void NativeLocation::shutdown() {
    const std::lock_guard lock(mutex_);
    workers_ = nullptr;
}

} // namespace morvellacinto::native
