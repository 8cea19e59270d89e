#include "morvellacinto/scripted/ScriptedTelephony.h"

namespace morvellacinto::scripted {

namespace {

class ScriptedTelephonyInfo final : public platform::TelephonyInfo {
public:
    explicit ScriptedTelephonyInfo(ScriptPointer script) : script_(std::move(script)) {}

    [[nodiscard]] std::optional<platform::Carrier> subscriberCellularProvider() const override {
        const auto carriers = serviceSubscriberCellularProviders();
        return carriers.has_value() && !carriers->empty() ? carriers->front() : std::nullopt;
    }

    [[nodiscard]] std::optional<std::string> currentRadioAccessTechnology() const override {
        const auto technologies = serviceCurrentRadioAccessTechnology();
        if (!technologies.has_value() || technologies->empty()) {
            return std::nullopt;
        }
        return technologies->front();
    }

    [[nodiscard]] std::optional<std::vector<std::optional<platform::Carrier>>>
    serviceSubscriberCellularProviders() const override {
        return script_->lock()->carriers;
    }

    [[nodiscard]] std::optional<std::vector<std::string>>
    serviceCurrentRadioAccessTechnology() const override {
        return script_->lock()->radioAccessTechnologies;
    }

private:
    const ScriptPointer script_;
};

} // namespace

ScriptedTelephony::ScriptedTelephony(ScriptPointer script) : script_(std::move(script)) {}

std::unique_ptr<platform::TelephonyInfo> ScriptedTelephony::makeInfo() const {
    return std::make_unique<ScriptedTelephonyInfo>(script_);
}

} // namespace morvellacinto::scripted
