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

std::optional<std::string> ScriptedDevice::localeIdentifier() const {
    return script_->lock()->locale;
}

std::optional<std::string> ScriptedDevice::systemVersion() const {
    return script_->lock()->systemVersion;
}

std::optional<Uuid> ScriptedDevice::identifierForVendor() const {
    return script_->lock()->vendorId;
}

std::optional<std::string> ScriptedDevice::bundleIdentifier() const {
    return script_->lock()->bundle;
}

float ScriptedDevice::batteryLevel() const { return script_->lock()->batteryLevel; }

std::int64_t ScriptedDevice::batteryState() const { return script_->lock()->batteryState; }

std::optional<std::string> ScriptedDevice::hardwareMachine() const {
    return script_->lock()->model;
}

bool ScriptedDevice::isAtLeast(int major, int minor) const {
    return script_->lock()->isAtLeast(major, minor);
}

std::unique_ptr<platform::TelephonyInfo> ScriptedDevice::makeInfo() const {
    return std::make_unique<TelephonyInfo>(script_);
}

std::optional<Uuid> ScriptedDevice::advertisingIdentifier() const {
    return script_->lock()->advertisingId;
}

bool ScriptedDevice::isAdvertisingTrackingEnabled() const {
    return script_->lock()->advertisingTrackingEnabled;
}

std::uint64_t ScriptedDevice::trackingAuthorizationStatus() const {
    return script_->lock()->trackingAuthorization;
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

std::optional<std::uint32_t> ScriptedDevice::defaultRouteFlags() const {
    return script_->lock()->reachabilityFlags;
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
