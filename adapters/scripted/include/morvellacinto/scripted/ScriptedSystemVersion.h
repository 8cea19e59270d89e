#pragma once

#include "morvellacinto/platform/SystemVersion.h"
#include "morvellacinto/scripted/SharedScript.h"

namespace morvellacinto::scripted {

/// Compares the script's system version, number by number.
class MORVELLACINTO_EXPORT ScriptedSystemVersion final : public platform::SystemVersion {
public:
    explicit ScriptedSystemVersion(ScriptPointer script);

    [[nodiscard]] bool isAtLeast(int major, int minor) const override;

private:
    ScriptPointer script_;
};

} // namespace morvellacinto::scripted
