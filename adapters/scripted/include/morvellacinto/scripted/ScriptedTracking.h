#pragma once

#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/Tracking.h"
#include "morvellacinto/scripted/SharedScript.h"

#include <atomic>

namespace morvellacinto::scripted {

/// The advertising identifier, and a user who answers the tracking prompt as the script says.
class MORVELLACINTO_EXPORT ScriptedTracking final : public platform::Tracking {
public:
    /// `dispatch` must outlive this object.
    ScriptedTracking(ScriptPointer script, platform::Dispatch& dispatch);

    [[nodiscard]] std::optional<Uuid> advertisingIdentifier() const override;
    [[nodiscard]] bool isAdvertisingTrackingEnabled() const override;
    [[nodiscard]] std::uint64_t trackingAuthorizationStatus() const override;
    /// The user answers in a block of the background queue: there a status of 0 becomes the
    /// script's `trackingAnswer`, then `answer` is called with the status. The block throws
    /// std::logic_error when the script's answer is 0.
    void requestTrackingAuthorization(Answer answer) override;

    /// How often the user was asked.
    [[nodiscard]] int requestCount() const noexcept;

private:
    ScriptPointer script_;
    platform::Dispatch& dispatch_;
    std::atomic<int> requestCount_{0};
};

} // namespace morvellacinto::scripted
