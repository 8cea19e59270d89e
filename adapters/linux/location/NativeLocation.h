#pragma once

#include "morvellacinto/platform/LocationService.h"

#include <memory>

namespace morvellacinto::native {

class MainQueue;

/// Location that is switched off for good: this adapter has no source for it. Starting updates
/// reports a failure.
class NativeLocation final : public platform::LocationServices {
public:
    /// `mainQueue` carries the notifications.
    explicit NativeLocation(std::shared_ptr<MainQueue> mainQueue);

    [[nodiscard]] std::shared_ptr<platform::LocationService> makeService() override;
    [[nodiscard]] bool locationServicesEnabled() const override;
    [[nodiscard]] std::int32_t authorizationStatus() const override;

private:
    const std::shared_ptr<MainQueue> mainQueue_;
};

} // namespace morvellacinto::native
