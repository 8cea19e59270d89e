// SPDX-License-Identifier: MIT
#include "morvellacinto/location/KRLocationManager.h"

#include "morvellacinto/platform/Diagnostics.h"
#include "morvellacinto/platform/Guarded.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/SystemVersion.h"

#include <utility>

namespace morvellacinto {
namespace {

constexpr const char* errorDomain = "se.kovra.error";
constexpr std::string_view updateFailed = "location update failed";
constexpr std::string_view errorFailed = "location error failed";
constexpr std::string_view authorizationFailed = "location auth failed";

} // namespace

KRLocationManager& KRLocationManager::shared() {
    static auto* const instance = [] {
        auto* const made = new KRLocationManager;
        platform::detail::atShutdown([] { shared().setUpdateBlocks({}); });
        return made;
    }();
    return *instance;
}

std::int32_t KRLocationManager::authorizationStatus() {
    const auto platform = platform::current();
    return platform->systemVersion().isAtLeast(14, 0)
               ? shared().locationManager_->authorizationStatus()
               : platform->locationServices().authorizationStatus();
}

bool KRLocationManager::locationServiceEnabled() {
    namespace status = platform::LocationAuthorization;
    return platform::current()->locationServices().locationServicesEnabled() &&
           authorizationStatus() != status::restricted && authorizationStatus() != status::denied &&
           authorizationStatus() != status::notDetermined;
}

std::string KRLocationManager::accuracyAuthorization() {
    const bool isReduced = platform::current()->systemVersion().isAtLeast(14, 0) &&
                           shared().locationManager_->accuracyAuthorization() ==
                               platform::AccuracyAuthorization::reduced;
    return isReduced ? "reduced" : "full";
}

KRLocationManager::KRLocationManager()
    : locationManager_(platform::current()->locationServices().makeService()),
      firstService_(locationManager_) {
    locationManager_->setDelegate(this);
}

KRLocationManager::~KRLocationManager() {
    locationManager_->setDelegate(nullptr);
    if (const auto first = firstService_.lock()) {
        first->setDelegate(nullptr);
    }
}

void KRLocationManager::addLocationUpdateBlock(UpdateBlock block, TextArgument key) {
    const auto platform = platform::current();
    if (platform::isShutDown()) {
        return; // by what the shutdown drops
    }
    platform::tell<platform::LocationAsked>();
    locationManager_->startUpdatingLocation();
    // The dropped block's destructor is host code: it runs when the table is whole again.
    const UpdateBlock dropped = std::exchange(updateBlocks_[std::string(key)], std::move(block));
    if (dropped) {
        platform::tell<platform::CallSuperseded>(key);
    }
}

bool KRLocationManager::removeLocationUpdateBlock(TextArgument key) {
    const auto found = updateBlocks_.find(key);
    if (found == updateBlocks_.end()) {
        return false;
    }
    const auto dropped = updateBlocks_.extract(found);
    if (updateBlocks_.empty() && !platform::isShutDown()) {
        locationManager_->stopUpdatingLocation();
    }
    return true;
}

void KRLocationManager::handleAuthorizationChange() {
    const auto platform = platform::current();
    platform::guarded(&platform->developerLog(), authorizationFailed, [this] {
        if (locationServiceEnabled()) {
            return;
        }
        forEachWaiting([this](const UpdateBlock& block) {
            block(std::nullopt, KRError{errorDomain, 0, {}});
            locationManager_->stopUpdatingLocation();
        });
    });
}

void KRLocationManager::locationManagerDidChangeAuthorization(
    platform::LocationService& /*manager*/) {
    handleAuthorizationChange();
}

void KRLocationManager::didUpdateLocations(platform::LocationService& /*manager*/,
                                           const std::vector<platform::LocationFix>& locations) {
    const auto platform = platform::current();
    locationManager_->stopUpdatingLocation();
    const auto newest = locations.empty() ? std::nullopt : std::optional(locations.back());
    platform::guarded(&platform->developerLog(), updateFailed, [&] {
        forEachWaiting([&newest](const UpdateBlock& block) { block(newest, std::nullopt); });
    });
    const UpdateBlocks dropped = std::exchange(updateBlocks_, {});
}

void KRLocationManager::didFailWithError(platform::LocationService& /*manager*/,
                                         const KRError& error) {
    const auto platform = platform::current();
    platform::guarded(&platform->developerLog(), errorFailed, [&] {
        forEachWaiting([&error](const UpdateBlock& block) { block(std::nullopt, error); });
    });
    locationManager_->stopUpdatingLocation();
    const UpdateBlocks dropped = std::exchange(updateBlocks_, {});
}

void KRLocationManager::setLocationManager(std::shared_ptr<platform::LocationService> manager) {
    locationManager_ = std::move(manager);
}

void KRLocationManager::setUpdateBlocks(UpdateBlocks blocks) { updateBlocks_.swap(blocks); }

// Blocks may add, replace and clear waiters: the keys are those of this moment, and each block is
// held while it runs. None runs after a shutdown, also one that a block asked for.
template <class Visit>
void KRLocationManager::forEachWaiting(Visit visit) {
    std::vector<std::string> keys;
    keys.reserve(updateBlocks_.size());
    for (const auto& entry : updateBlocks_) {
        keys.push_back(entry.first);
    }
    for (const std::string& key : keys) {
        if (platform::isShutDown()) {
            return;
        }
        const auto found = updateBlocks_.find(key);
        if (found == updateBlocks_.end() || !found->second) {
            continue;
        }
        const UpdateBlock block = found->second;
        visit(block);
    }
}

} // namespace morvellacinto
