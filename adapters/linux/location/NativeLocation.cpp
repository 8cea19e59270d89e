#include "NativeLocation.h"

#include "MainQueue.h"

#include <utility>

namespace morvellacinto::native {

namespace {

constexpr std::int64_t locationDisabled = 1;

class NoLocation final : public platform::LocationService,
                         public std::enable_shared_from_this<NoLocation> {
public:
    explicit NoLocation(std::shared_ptr<MainQueue> mainQueue) : mainQueue_(std::move(mainQueue)) {}

    void setDelegate(platform::LocationServiceDelegate* delegate) override { delegate_ = delegate; }

    void startUpdatingLocation() override {
        if (std::exchange(updating_, true)) {
            return;
        }
        mainQueue_->post([service = weak_from_this(), start = ++starts_] {
            const auto self = service.lock();
            if (self != nullptr && self->updating_ && self->starts_ == start &&
                self->delegate_ != nullptr) {
                KRError error{"morvellacinto.location", locationDisabled, {}};
                error.userInfo.set(KRError::messageKey, "this system has no location service");
                self->delegate_->didFailWithError(*self, error);
            }
        });
    }

    void stopUpdatingLocation() override { updating_ = false; }

    [[nodiscard]] std::int32_t authorizationStatus() const override {
        return platform::LocationAuthorization::notDetermined;
    }

    [[nodiscard]] std::int32_t accuracyAuthorization() const override {
        return platform::AccuracyAuthorization::full;
    }

private:
    // Shared, since a client may outlive the platform.
    const std::shared_ptr<MainQueue> mainQueue_;
    // Used on the main thread only, from the first start on.
    platform::LocationServiceDelegate* delegate_ = nullptr;
    bool updating_ = false;
    std::uint64_t starts_ = 0;
};

} // namespace

NativeLocation::NativeLocation(std::shared_ptr<MainQueue> mainQueue)
    : mainQueue_(std::move(mainQueue)) {}

std::shared_ptr<platform::LocationService> NativeLocation::makeService() {
    return std::make_shared<NoLocation>(mainQueue_);
}

bool NativeLocation::locationServicesEnabled() const { return false; }

std::int32_t NativeLocation::authorizationStatus() const {
    return platform::LocationAuthorization::notDetermined;
}

} // namespace morvellacinto::native
