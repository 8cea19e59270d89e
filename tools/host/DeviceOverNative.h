// SPDX-License-Identifier: MIT
#pragma once

#include "DelayedBlocks.h"

#include "morvellacinto/native/NativePlatform.h"
#include "morvellacinto/scripted/ScriptedDevice.h"
#include "morvellacinto/scripted/ScriptedLocationServices.h"

namespace morvellacinto::host {

/// A machine whose device services are those of a scripted phone: its HTTP, settings, queues,
/// clock, log and diagnostics stay its own.
class DeviceOverNative final : public platform::Platform {
public:
    DeviceOverNative(std::shared_ptr<native::NativePlatform> machine, scripted::PhoneScript phone);

    [[nodiscard]] platform::Dispatch& dispatch() override { return machine_->dispatch(); }
    [[nodiscard]] platform::Clock& clock() override { return machine_->clock(); }
    [[nodiscard]] platform::DeveloperLog& developerLog() override {
        return machine_->developerLog();
    }
    [[nodiscard]] platform::AssertionHandler& assertionHandler() override {
        return machine_->assertionHandler();
    }
    [[nodiscard]] platform::UserDefaults& standardUserDefaults() override {
        return machine_->standardUserDefaults();
    }
    [[nodiscard]] platform::UrlParser& urlParser() override { return machine_->urlParser(); }
    [[nodiscard]] platform::Diagnostics* diagnostics() noexcept override {
        return machine_->diagnostics();
    }
    [[nodiscard]] std::optional<std::string> defaultServiceUrl() override {
        return machine_->defaultServiceUrl();
    }
    [[nodiscard]] std::shared_ptr<platform::HttpSession>
    makeHttpSession(platform::HttpSessionConfiguration configuration,
                    platform::HttpSessionDelegate* delegate) override {
        return machine_->makeHttpSession(std::move(configuration), delegate);
    }

    [[nodiscard]] platform::SystemVersion& systemVersion() override { return device_; }
    [[nodiscard]] platform::Telephony& telephony() override { return device_; }
    [[nodiscard]] platform::Device& device() override { return device_; }
    [[nodiscard]] platform::Tracking& tracking() override { return device_; }
    [[nodiscard]] platform::Network& network() override { return device_; }
    [[nodiscard]] platform::LocationServices& locationServices() override { return location_; }

    void shutdown() override { machine_->shutdown(); }

private:
    DeviceOverNative(std::shared_ptr<native::NativePlatform> machine,
                     const std::shared_ptr<scripted::SharedScript>& phone);

    const std::shared_ptr<native::NativePlatform> machine_;
    const std::shared_ptr<DelayedBlocks> delayed_ = std::make_shared<DelayedBlocks>();
    scripted::ScriptedDevice device_;
    scripted::ScriptedLocationServices location_;
};

} // namespace morvellacinto::host
