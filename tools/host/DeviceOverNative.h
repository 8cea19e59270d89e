#pragma once

#include "DelayedBlocks.h"

#include "morvellacinto/native/NativePlatform.h"
#include "morvellacinto/scripted/ScriptedDeviceServices.h"

namespace morvellacinto::host {

/// A machine whose device services are those of a scripted phone: its HTTP, settings, queues, clock
/// and log stay its own.
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
    [[nodiscard]] std::shared_ptr<platform::HttpSession>
    makeHttpSession(platform::HttpSessionConfiguration configuration,
                    platform::HttpSessionDelegate* delegate) override {
        return machine_->makeHttpSession(std::move(configuration), delegate);
    }

    [[nodiscard]] platform::SystemVersion& systemVersion() override {
        return phone_.systemVersion();
    }
    [[nodiscard]] platform::LocationServices& locationServices() override {
        return phone_.locationServices();
    }
    [[nodiscard]] platform::Telephony& telephony() override { return phone_.telephony(); }
    [[nodiscard]] platform::Device& device() override { return phone_.device(); }
    [[nodiscard]] platform::Tracking& tracking() override { return phone_.tracking(); }
    [[nodiscard]] platform::Network& network() override { return phone_.network(); }

    void shutdown() override { machine_->shutdown(); }

private:
    std::shared_ptr<native::NativePlatform> machine_;
    scripted::ScriptedDeviceServices phone_;
    DelayedBlocks delayed_; // ends before the phone that its blocks speak of
};

} // namespace morvellacinto::host
