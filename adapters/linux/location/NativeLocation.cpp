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

void NativeLocation::shutdown() {
    const std::lock_guard lock(mutex_);
    workers_ = nullptr;
}

} // namespace morvellacinto::native
