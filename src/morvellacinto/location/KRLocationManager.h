// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/foundation/TextArgument.h"
#include "morvellacinto/platform/LocationService.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace morvellacinto {

/// The one wrapper over the platform's location service: tells what the user permits, and hands the
/// next fix, failure or lack of permission to callbacks that wait under a key. It never asks the
/// user for permission.
///
/// The waiting callbacks are the main thread's: add and remove them there, and they are called and
/// destroyed there. A shutdown there drops those of the shared instance; after one elsewhere they
/// stay until they are removed. The questions about permission may be asked on any thread.
/// Operations throw std::logic_error when no platform is installed.
class MORVELLACINTO_EXPORT KRLocationManager : public platform::LocationServiceDelegate {
public:
    /// Receives (fix, nothing) or (nothing, error); for an empty list of fixes (nothing, nothing).
    using UpdateBlock = std::function<void(const std::optional<platform::LocationFix>& fix,
                                           const std::optional<KRError>& error)>;
    using UpdateBlocks = std::map<std::string, UpdateBlock, std::less<>>; ///< by key

    /// The instance that the library uses, made on the first call and never destroyed.
    [[nodiscard]] static KRLocationManager& shared();

    /// A `platform::LocationAuthorization`, or a later number of the platform's.
    [[nodiscard]] static std::int32_t authorizationStatus();
    /// Whether location may be used: it is on and not restricted, denied or not determined.
    [[nodiscard]] static bool locationServiceEnabled();
    /// "reduced" or "full"; always "full" on systems before 14.0.
    [[nodiscard]] static std::string accuracyAuthorization();

    /// An instance with a location service of its own. Make and destroy it on the main thread.
    KRLocationManager();
    ~KRLocationManager() override;

    /// Starts location updates and keeps `block` under `key` until a fix or a failure has come. A
    /// block that waits under the same key is dropped without a call.
    void addLocationUpdateBlock(UpdateBlock block, TextArgument key);
    /// Drops the block that waits under `key`; false when none does. The last one stops updates.
    bool removeLocationUpdateBlock(TextArgument key);

    /// When location may not be used (any more): calls each waiting block with an error of domain
    /// "se.kovra.error" and code 0 and stops updates. The blocks stay and are called again by what
    /// comes next.
    void handleAuthorizationChange();

    void locationManagerDidChangeAuthorization(platform::LocationService& manager) override;
    void didUpdateLocations(platform::LocationService& manager,
                            const std::vector<platform::LocationFix>& locations) override;
    void didFailWithError(platform::LocationService& manager, const KRError& error) override;

    /// Always nothing: a fix is held only while it is handed out.
    [[nodiscard]] const std::optional<platform::LocationFix>& lastLocation() const noexcept {
        return lastLocation_;
    }
    /// Never null.
    [[nodiscard]] const std::shared_ptr<platform::LocationService>&
    locationManager() const noexcept {
        return locationManager_;
    }
    /// `manager` must not be null. Delegates are the caller's business: the service that is
    /// replaced keeps this object as its own, until this object is destroyed.
    void setLocationManager(std::shared_ptr<platform::LocationService> manager);
    /// Those that wait; they are replaced without a call. Main thread. @{
    [[nodiscard]] const UpdateBlocks& updateBlocks() const noexcept { return updateBlocks_; }
    void setUpdateBlocks(UpdateBlocks blocks); ///@}

private:
    template <class Visit>
    void forEachWaiting(Visit visit);

    std::optional<platform::LocationFix> lastLocation_;
    std::shared_ptr<platform::LocationService> locationManager_;
    std::weak_ptr<platform::LocationService> firstService_; // has this object as its delegate
    UpdateBlocks updateBlocks_;
};

} // namespace morvellacinto
