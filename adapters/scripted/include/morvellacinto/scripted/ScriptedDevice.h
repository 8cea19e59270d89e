#pragma once

#include "morvellacinto/platform/Device.h"
#include "morvellacinto/scripted/SharedScript.h"

namespace morvellacinto::scripted {

/// Device facts as the script tells them.
class MORVELLACINTO_EXPORT ScriptedDevice final : public platform::Device {
public:
    explicit ScriptedDevice(ScriptPointer script);

    [[nodiscard]] std::optional<std::string> localeIdentifier() const override;
    [[nodiscard]] std::optional<std::string> systemVersion() const override;
    [[nodiscard]] std::optional<Uuid> identifierForVendor() const override;
    [[nodiscard]] std::optional<std::string> bundleIdentifier() const override;
    [[nodiscard]] float batteryLevel() const override;
    [[nodiscard]] std::int64_t batteryState() const override;
    [[nodiscard]] std::optional<std::string> hardwareMachine() const override;

private:
    ScriptPointer script_;
};

} // namespace morvellacinto::scripted
