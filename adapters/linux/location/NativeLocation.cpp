// SPDX-License-Identifier: MIT
#include "NativeLocation.h"

#include "GeoClueClient.h"
#include "threads/MainQueue.h"
#include "threads/WorkerPool.h"

#include <stdexcept>

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

std::shared_ptr<GeoClueRun> NativeLocation::start(std::chrono::milliseconds timeout,
                                                  GeoClueRun::Tell tell) {
    if (!options_.bundleIdentifier) {
        throw std::runtime_error("the application has no bundle identifier to ask with");
    }
    auto run = std::make_shared<GeoClueRun>(bus_, permission_, *options_.bundleIdentifier, timeout,
                                            std::move(tell));
    const std::lock_guard lock(mutex_);
    if (workers_ != nullptr) {
        workers_->postLasting([self = shared_from_this(), run] { run->run(); });
    }
    return run;
}

// By a run that ends with the first news.
void NativeLocation::askAgain() {
    try {
        start(LocationPermission::questionInterval, [](auto& run, const auto&) { run.stop(); });
    } catch (const std::exception&) {
        return; // a later question may have more luck
    }
}

void NativeLocation::shutdown() {
    const std::lock_guard lock(mutex_);
    workers_ = nullptr;
}

} // namespace morvellacinto::native
