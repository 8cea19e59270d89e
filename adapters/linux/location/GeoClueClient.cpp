// SPDX-License-Identifier: MIT
#include "GeoClueClient.h"

#include "NativeLocation.h"

#include <exception>

namespace morvellacinto::native {

GeoClueClient::~GeoClueClient() { stopUpdatingLocation(); }

void GeoClueClient::startUpdatingLocation() {
    if (std::exchange(isUpdating_, true)) {
        return;
    }
    const auto tell = [client = weak_from_this(), location = location_,
                       run = ++runNumber_](const LocationNews& news) {
        location->postToMain([client, run, news] {
            if (const auto self = client.lock()) {
                self->handle(run, news);
            }
        });
    };
    try {
        run_ = location_->start(location_->timeout(),
                                [tell](auto& /*run*/, const auto& news) { tell(news); });
    } catch (const std::exception& exception) { // no thread or descriptor is left, too
        tell({{}, locationError(LocationErrorCode::unavailable, exception.what())});
    }
}

void GeoClueClient::stopUpdatingLocation() {
    isUpdating_ = false;
    if (const auto run = std::exchange(run_, nullptr)) {
        run->stop();
    }
}

std::int32_t GeoClueClient::authorizationStatus() const { return location_->authorizationStatus(); }

void GeoClueClient::handle(std::uint64_t run, const LocationNews& news) {
    if (!isUpdating_ || run != runNumber_) {
        return;
    }
    if (news.failure) {
        stopUpdatingLocation();
    }
    auto* delegate = delegate_.load();
    if (delegate == nullptr) {
        return;
    }
    // Permission may have changed while the fix was on its way.
    const bool isGranted = location_->locationServicesEnabled() &&
                           authorizationStatus() == platform::LocationAuthorization::whenInUse;
    if (news.failure) {
        delegate->didFailWithError(*this, *news.failure);
    } else if (!news.fix) {
        delegate->locationManagerDidChangeAuthorization(*this);
    } else if (isGranted) {
        delegate->didUpdateLocations(*this, {*news.fix});
    }
}

} // namespace morvellacinto::native
