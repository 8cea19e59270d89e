// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedDevice.h"

#include <utility>

namespace morvellacinto::scripted {

namespace {

class TelephonyInfo final : public platform::TelephonyInfo {
public:
    explicit TelephonyInfo(std::shared_ptr<SharedScript> script) : script_(std::move(script)) {}

    [[nodiscard]] std::optional<platform::Carrier> subscriberCellularProvider() const override {
        const auto carriers = script_->lock()->carriers;
        return carriers.has_value() && !carriers->empty() ? carriers->front() : std::nullopt;
    }

    [[nodiscard]] std::optional<std::string> currentRadioAccessTechnology() const override {
        const auto all = script_->lock()->radioAccessTechnologies;
        return all.has_value() && !all->empty() ? std::optional(all->front()) : std::nullopt;
    }

    [[nodiscard]] std::optional<std::vector<std::optional<platform::Carrier>>>
    serviceSubscriberCellularProviders() const override {
        return ifListed(&PhoneScript::carriers);
    }

    [[nodiscard]] std::optional<std::vector<std::string>>
    serviceCurrentRadioAccessTechnology() const override {
        return ifListed(&PhoneScript::radioAccessTechnologies);
    }

private:
    // Systems before 12.0 have no lists.
    template <class List>
    List ifListed(List PhoneScript::*list) const {
        const auto script = script_->lock();
        return script->isAtLeast(12, 0) ? (*script).*list : std::nullopt;
    }

    const std::shared_ptr<SharedScript> script_;
};

} // namespace

ScriptedDevice::ScriptedDevice(std::shared_ptr<SharedScript> script, platform::Dispatch& dispatch)
    : script_(std::move(script)), dispatch_(dispatch) {}

std::unique_ptr<platform::TelephonyInfo> ScriptedDevice::makeInfo() const {
    return std::make_unique<TelephonyInfo>(script_);
}

void ScriptedDevice::requestTrackingAuthorization(Answer answer) {
    ++requestCount_;
    dispatch_.asyncGlobal([shared = script_, answer = std::move(answer)] {
        std::optional<std::uint64_t> status;
        {
            const auto script = shared->lock();
            if (script->trackingAuthorization == platform::TrackingAuthorization::notDetermined) {
                status = script->trackingAnswer;
                script->trackingAuthorization = status.value_or(script->trackingAuthorization);
            } else {
                status = script->trackingAuthorization;
            }
        }
        if (status.has_value() && answer != nullptr) {
            answer(*status);
        }
    });
}

std::optional<std::vector<std::string>> ScriptedDevice::supportedInterfaces() const {
    const auto wifi = script_->lock()->wifi;
    if (!wifi.has_value()) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    for (const PhoneScript::WifiInterface& interface : *wifi) {
        names.push_back(interface.interface);
    }
    return names;
}

std::optional<platform::WifiNetwork>
ScriptedDevice::currentNetworkInfo(const std::string& interface) const {
    const auto wifi = script_->lock()->wifi;
    for (const auto& [name, network] : wifi.value_or(std::vector<PhoneScript::WifiInterface>())) {
        if (name == interface && (network.ssid.has_value() || network.bssid.has_value())) {
            return network;
        }
    }
    return std::nullopt;
}

} // namespace morvellacinto::scripted
