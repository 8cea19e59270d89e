#include "morvellacinto/scripted/ScriptedDevice.h"

namespace morvellacinto::scripted {

ScriptedDevice::ScriptedDevice(ScriptPointer script) : script_(std::move(script)) {}

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

} // namespace morvellacinto::scripted
