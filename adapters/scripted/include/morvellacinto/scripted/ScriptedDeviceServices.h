#pragma once

#include "morvellacinto/scripted/ScriptedDevice.h"
#include "morvellacinto/scripted/ScriptedLocationServices.h"
#include "morvellacinto/scripted/ScriptedNetwork.h"
#include "morvellacinto/scripted/ScriptedSystemVersion.h"
#include "morvellacinto/scripted/ScriptedTelephony.h"
#include "morvellacinto/scripted/ScriptedTracking.h"

namespace morvellacinto::scripted {

/// All device services over one script, for a platform that takes its HTTP, settings, queues and
/// clock from elsewhere.
class MORVELLACINTO_EXPORT ScriptedDeviceServices {
public:
    /// `dispatch` must outlive this object and the blocks that it is given.
    ScriptedDeviceServices(PhoneScript script, platform::Dispatch& dispatch, Scheduler scheduler);

    /// May be changed at any time: `services.script()->batteryLevel = 0.5F`.
    [[nodiscard]] SharedScript& script() noexcept { return *script_; }
    [[nodiscard]] ScriptedDevice& device() noexcept { return device_; }
    [[nodiscard]] ScriptedTelephony& telephony() noexcept { return telephony_; }
    [[nodiscard]] ScriptedTracking& tracking() noexcept { return tracking_; }
    [[nodiscard]] ScriptedNetwork& network() noexcept { return network_; }
    [[nodiscard]] ScriptedSystemVersion& systemVersion() noexcept { return systemVersion_; }
    [[nodiscard]] ScriptedLocationServices& locationServices() noexcept {
        return locationServices_;
    }

private:
    ScriptPointer script_;
    ScriptedDevice device_;
    ScriptedTelephony telephony_;
    ScriptedTracking tracking_;
    ScriptedNetwork network_;
    ScriptedSystemVersion systemVersion_;
    ScriptedLocationServices locationServices_;
};

} // namespace morvellacinto::scripted
