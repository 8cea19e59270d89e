#pragma once

#include "GeoClueRun.h"

#include "morvellacinto/platform/LocationService.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace morvellacinto::native {

class NativeLocation;

/// A client of the location service. After a failure updates have ended, as if stopped.
///
/// - A refusal turns the authorization status to 2 for 60 seconds: the delegates of all clients
/// hear
///   of the change, then the client fails with `denied`, unless its delegate has stopped it.
///   Refused because location is switched off for the device, the services count as disabled too.
/// - Location switched off while updates run, or on again: the services count as disabled, or as
///   enabled, and all delegates hear of a change. A fix that is then on its way is dropped; updates
///   go on when the daemon resumes them.
/// - A start that succeeds while a refusal or an absence is still believed ends that, and all
///   delegates hear of the change.
/// - No fix within the time-out fails with `timedOut`; no bus, no daemon or no bundle identifier
///   with `unavailable`, and without bus or daemon the status is 0 for 60 seconds; a daemon that
///   ends, or a bus that goes while updates run, with `lost`.
class GeoClueClient final : public platform::LocationService,
                            public std::enable_shared_from_this<GeoClueClient> {
public:
    explicit GeoClueClient(std::shared_ptr<NativeLocation> location);
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
    void handle(std::uint64_t run, const LocationNews& news);

    const std::shared_ptr<NativeLocation> location_;
    // Set before the first start on any thread, while the main one may be reading it.
    std::atomic<platform::LocationServiceDelegate*> delegate_ = nullptr;
    // The main thread's.
    bool isUpdating_ = false;
    std::uint64_t runNumber_ = 0;
    std::shared_ptr<GeoClueRun> run_;
};

} // namespace morvellacinto::native
