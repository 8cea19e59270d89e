#include "NativeLocation.h"

#include "GeoClueClient.h"
#include "GeoClueRun.h"
#include "threads/MainQueue.h"
#include "threads/WorkerPool.h"

#include <utility>

namespace morvellacinto::native {

NativeLocation::NativeLocation(const std::shared_ptr<MainQueue>& mainQueue, Bus& bus,
                               WorkerPool& workers, LocationOptions options)
    : mainQueue_(mainQueue), bus_(bus), options_(std::move(options)),
      permission_([this] { return options_.bundleIdentifier && options_.serviceExists(); },
                  LocationPermission::Clock::now, [this] { askAgain(); }),
      workers_(&workers) {}

std::shared_ptr<platform::LocationService> NativeLocation::makeService() {
    return std::make_shared<GeoClueClient>(shared_from_this());
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

// By a run that ends with the first news.
void NativeLocation::askAgain() {
    try {
        const auto run = std::make_shared<std::optional<GeoClueRun>>();
        run->emplace(bus_, permission_, *options_.bundleIdentifier,
                     LocationPermission::questionInterval,
                     [&asked = *run](const LocationNews&) { asked->stop(); });
        startThread([self = shared_from_this(), run] { (*run)->run(); });
    } catch (const std::exception&) {
        return; // no thread or descriptor is left: a later question asks
    }
}

void NativeLocation::shutdown() {
    const std::lock_guard lock(mutex_);
    workers_ = nullptr;
}

} // namespace morvellacinto::native
