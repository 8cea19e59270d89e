#include "morvellacinto/scripted/ScriptedDeviceServices.h"

namespace morvellacinto::scripted {

ScriptedDeviceServices::ScriptedDeviceServices(PhoneScript script, platform::Dispatch& dispatch,
                                               Scheduler scheduler)
    : script_(std::make_shared<SharedScript>(std::move(script))), device_(script_),
      telephony_(script_), tracking_(script_, dispatch), network_(script_), systemVersion_(script_),
      locationServices_(script_, dispatch, std::move(scheduler)) {}

} // namespace morvellacinto::scripted
