#pragma once

#include "morvellacinto/platform/Tracking.h"

namespace morvellacinto::native {

class WorkerPool;

/// Linux has no advertising identifier and nothing that asks the user: tracking is denied.
class NativeTracking final : public platform::Tracking {
public:
    /// Answers are given on `workers`, which must outlive this.
    explicit NativeTracking(WorkerPool& workers);

    [[nodiscard]] std::optional<Uuid> advertisingIdentifier() const override;
    [[nodiscard]] bool isAdvertisingTrackingEnabled() const override;
    [[nodiscard]] std::uint64_t trackingAuthorizationStatus() const override;
    void requestTrackingAuthorization(Answer answer) override;

private:
    WorkerPool& workers_;
};

} // namespace morvellacinto::native
