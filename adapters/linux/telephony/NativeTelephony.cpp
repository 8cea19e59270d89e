#include "NativeTelephony.h"

namespace morvellacinto::native {

namespace {

class NoTelephony final : public platform::TelephonyInfo {
public:
    [[nodiscard]] std::optional<platform::Carrier> subscriberCellularProvider() const override {
        return std::nullopt;
    }
    [[nodiscard]] std::optional<std::string> currentRadioAccessTechnology() const override {
        return std::nullopt;
    }
    [[nodiscard]] std::optional<std::vector<std::optional<platform::Carrier>>>
    serviceSubscriberCellularProviders() const override {
        return std::nullopt;
    }
    [[nodiscard]] std::optional<std::vector<std::string>>
    serviceCurrentRadioAccessTechnology() const override {
        return std::nullopt;
    }
};

} // namespace

std::unique_ptr<platform::TelephonyInfo> NativeTelephony::makeInfo() const {
    return std::make_unique<NoTelephony>();
}

} // namespace morvellacinto::native
