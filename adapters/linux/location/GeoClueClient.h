#pragma once

#include "GeoClueSession.h"

#include "morvellacinto/platform/LocationService.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace morvellacinto::native {

class LocationContext;

/// A client of the location service; each run of updates is a GeoClue client of its own. What
/// happens in each situation:
///
/// - a start while updates run has no effect; a stop while they start ends them, and nothing of
///   them is delivered afterwards;
/// - a refusal turns the authorization status to 2 for 60 seconds; the delegates of all clients
///   hear of the change, then the client that was refused, unless its delegate has stopped it,
///   fails with `denied`. Refused because location is switched off for the device, the services
///   count as disabled too;
/// - location switched off while updates run, or on again: the services count as disabled, or as
///   enabled, and all delegates hear of a change; updates go on when the daemon resumes them;
/// - no fix within the time-out fails with `timedOut`; no bus, no daemon or no bundle identifier
///   with `unavailable`, and the status is 0 for 60 seconds when daemon or bus are missing;
/// - a daemon that ends while fixes come is started again, or counts as missing when it cannot be;
///   it fails with `lost` when the bus goes;
/// - a start that succeeds while a refusal or an absence is still believed ends that, and all
///   delegates hear of the change.
///
/// After a failure updates have ended, as if stopped.
class GeoClueClient final : public platform::LocationService,
                            public std::enable_shared_from_this<GeoClueClient> {
public:
    explicit GeoClueClient(std::shared_ptr<LocationContext> context);
    ~GeoClueClient() override;

    void setDelegate(platform::LocationServiceDelegate* delegate) override;
    void startUpdatingLocation() override;
    void stopUpdatingLocation() override;
    [[nodiscard]] std::int32_t authorizationStatus() const override;
    /// GeoClue does not tell what an agent limits the application to: always full.
    [[nodiscard]] std::int32_t accuracyAuthorization() const override;

    /// Main thread.
    void authorizationChanged();

private:
    void handle(std::uint64_t run, const SessionEvent::Any& event);
    void fail(std::uint64_t run, LocationErrorCode code, const std::string& message);
    void endSession();
    [[nodiscard]] bool isCurrent(std::uint64_t run) const { return isUpdating_ && run == run_; }

    const std::shared_ptr<LocationContext> context_;
    // Set before the first start on any thread, while the main one may be reading it.
    std::atomic<platform::LocationServiceDelegate*> delegate_ = nullptr;
    // The main thread's.
    bool isUpdating_ = false;
    std::uint64_t run_ = 0;
    std::shared_ptr<GeoClueSession> session_;
};

} // namespace morvellacinto::native
