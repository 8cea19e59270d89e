// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Device.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/SystemVersion.h"
#include "morvellacinto/scripted/PhoneScript.h"

#include <atomic>
#include <memory>

namespace morvellacinto::scripted {

/// All that a script tells but location: the device, its version, telephony, networks, and a user
/// who answers the tracking prompt. Each question reads the script anew.
class MORVELLACINTO_EXPORT ScriptedDevice final : public platform::Device,
                                                  public platform::SystemVersion,
                                                  public platform::Telephony,
                                                  public platform::Tracking,
                                                  public platform::Network {
public:
    /// `dispatch` must outlive this object.
    ScriptedDevice(std::shared_ptr<SharedScript> script, platform::Dispatch& dispatch);

    [[nodiscard]] std::optional<std::string> localeIdentifier() const override {
        return script_->lock()->locale;
    }
    [[nodiscard]] std::optional<std::string> systemVersion() const override {
        return script_->lock()->systemVersion;
    }
    [[nodiscard]] std::optional<Uuid> identifierForVendor() const override {
        return script_->lock()->vendorId;
    }
    [[nodiscard]] std::optional<std::string> bundleIdentifier() const override {
        return script_->lock()->bundle;
    }
    [[nodiscard]] float batteryLevel() const override { return script_->lock()->batteryLevel; }
    [[nodiscard]] std::int64_t batteryState() const override {
        return script_->lock()->batteryState;
    }
    [[nodiscard]] std::optional<std::string> hardwareMachine() const override {
        return script_->lock()->model;
    }

    [[nodiscard]] bool isAtLeast(int major, int minor) const override {
        return script_->lock()->isAtLeast(major, minor);
    }

    /// Before 12.0 the information has the first of the script's services alone, and no lists.
    [[nodiscard]] std::unique_ptr<platform::TelephonyInfo> makeInfo() const override;

    [[nodiscard]] std::optional<Uuid> advertisingIdentifier() const override {
        return script_->lock()->advertisingId;
    }
    [[nodiscard]] bool isAdvertisingTrackingEnabled() const override {
        return script_->lock()->advertisingTrackingEnabled;
    }
    [[nodiscard]] std::uint64_t trackingAuthorizationStatus() const override {
        return script_->lock()->trackingAuthorization;
    }
    /// The user answers in a block of the background queue: there a status of 0 becomes the
    /// script's `trackingAnswer`, then `answer` is called with the status.
    void requestTrackingAuthorization(Answer answer) override;
    /// How often the user was asked.
    [[nodiscard]] int requestCount() const noexcept { return requestCount_; }

    [[nodiscard]] std::optional<std::uint32_t> defaultRouteFlags() const override {
        return script_->lock()->reachabilityFlags;
    }
    [[nodiscard]] std::optional<std::vector<std::string>> supportedInterfaces() const override;
    [[nodiscard]] std::optional<platform::WifiNetwork>
    currentNetworkInfo(const std::string& interface) const override;

private:
    const std::shared_ptr<SharedScript> script_;
    platform::Dispatch& dispatch_;
    std::atomic<int> requestCount_{0};
};

} // namespace morvellacinto::scripted
