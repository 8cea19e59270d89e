// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Export.h"
#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/platform/LocationService.h"
#include "morvellacinto/platform/Network.h"
#include "morvellacinto/platform/Telephony.h"
#include "morvellacinto/platform/Tracking.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace morvellacinto::scripted {

/// What a scripted phone's device services answer. An empty optional means that the platform gives
/// no answer. Each interface of `platform/` documents the values.
struct PhoneScript {
    /// One Wi-Fi interface of the phone.
    struct WifiInterface {
        std::string interface;
        /// Both empty: the interface is joined to no network.
        platform::WifiNetwork network;
    };

    /// How the location service answers a start of updates.
    struct Location {
        bool servicesEnabled = true;
        std::int32_t authorizationStatus = platform::LocationAuthorization::whenInUse;
        std::int32_t accuracyAuthorization = platform::AccuracyAuthorization::full;
        /// From the start of updates to the answer; empty: no answer ever comes by itself.
        std::optional<std::chrono::duration<double>> delay = std::chrono::milliseconds(50);
        /// One delivery for each start, oldest fix first. An empty list is delivered as such;
        /// without a list nothing is.
        std::optional<std::vector<platform::LocationFix>> fixes =
            std::vector<platform::LocationFix>{{59.3293371, 18.0685808, 1.25, 270.5}};
        /// Comes in place of the fixes.
        std::optional<KRError> error;
    };

    /// Such as "17.5". Decides, read as numbers, which generation of a service is used; text that
    /// is no version, or none, counts as older than any.
    std::optional<std::string> systemVersion = "17.5";
    std::optional<std::string> locale = "sv_SE";
    std::optional<std::string> bundle = "com.example.host";
    std::optional<Uuid> vendorId = Uuid::parse("7B0F8C0E-3D1B-4C0B-9A52-0E6D3C2F4A11");
    std::optional<Uuid> advertisingId = Uuid::parse("A1B2C3D4-0000-4000-8000-1234567890AB");
    bool advertisingTrackingEnabled = true;
    std::uint64_t trackingAuthorization = platform::TrackingAuthorization::authorized;
    /// The user's answer when asked for permission to track, never 0; empty: the user never
    /// answers.
    std::optional<std::uint64_t> trackingAnswer = platform::TrackingAuthorization::authorized;
    std::optional<std::string> model = "phone14,2";
    float batteryLevel = 0.75F;
    std::int64_t batteryState = 1;
    /// An empty entry is a service without a carrier.
    std::optional<std::vector<std::optional<platform::Carrier>>> carriers =
        std::vector<std::optional<platform::Carrier>>{platform::Carrier{"Telco", "se", "01"}};
    std::optional<std::vector<std::string>> radioAccessTechnologies =
        std::vector<std::string>{"LTE"};
    std::optional<std::uint32_t> reachabilityFlags = platform::ReachabilityFlags::reachable;
    std::optional<std::vector<WifiInterface>> wifi =
        std::vector<WifiInterface>{{"wlan0", {"home", "00:11:22:33:44:55"}}};
    Location location;

    /// Compares the system version number by number.
    [[nodiscard]] MORVELLACINTO_EXPORT bool isAtLeast(int major, int minor) const;
};

/// A script that device services read while others change it: `script->batteryLevel = 0.5F`.
/// Each such access is locked to the end of its expression. Any thread.
class SharedScript {
public:
    /// Keeps the script locked; for several changes at once, hold one from `lock()`.
    class Access {
    public:
        explicit Access(SharedScript& shared) : lock_(shared.mutex_), script_(shared.script_) {}
        PhoneScript* operator->() const noexcept { return &script_; }
        PhoneScript& operator*() const noexcept { return script_; }

    private:
        std::unique_lock<std::recursive_mutex> lock_;
        PhoneScript& script_;
    };

    explicit SharedScript(PhoneScript script) : script_(std::move(script)) {}

    [[nodiscard]] Access lock() { return Access(*this); } ///< waits for other threads
    Access operator->() { return lock(); }

private:
    std::recursive_mutex mutex_; // recursive for expressions that look at the script twice
    PhoneScript script_;
};

} // namespace morvellacinto::scripted
