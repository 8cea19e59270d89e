// SPDX-License-Identifier: MIT
#pragma once

#include "GeoClueRun.h"

#include "morvellacinto/platform/LocationService.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace morvellacinto::native {

class NativeLocation;

/// A client of the location service. After a failure updates have ended, as if stopped.
/// - A refusal turns the status to 2 for a while and, when location is off for the whole device,
///   disables the services; the delegate hears of it. Then the client fails with `denied`, unless
///   its delegate has stopped it. A start that succeeds earlier is told too.
/// - Location switched off while updates run, or on again: services count as disabled or enabled,
///   the delegate hears of it, a fix on its way is dropped, and updates go on with the daemon.
/// - What changes the status is told to the delegate of the client that met it, and to no other.
/// - No fix in time fails with `timedOut`; no bus, daemon or bundle identifier with `unavailable`,
///   and without bus or daemon the status is 0 for a while; a daemon that ends, or a bus that
///   goes while updates run, with `lost`.
class GeoClueClient final : public platform::LocationService,
                            public std::enable_shared_from_this<GeoClueClient> {
public:
    explicit GeoClueClient(std::shared_ptr<NativeLocation> location)
        : location_(std::move(location)) {}
    ~GeoClueClient() override;

    void setDelegate(platform::LocationServiceDelegate* delegate) override { delegate_ = delegate; }
    void startUpdatingLocation() override;
    void stopUpdatingLocation() override;
    [[nodiscard]] std::int32_t authorizationStatus() const override;
    /// GeoClue does not tell what an agent limits the application to: always full.
    [[nodiscard]] std::int32_t accuracyAuthorization() const override {
        return platform::AccuracyAuthorization::full;
    }

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
