#pragma once

#include "morvellacinto/platform/Telephony.h"
#include "morvellacinto/scripted/SharedScript.h"

namespace morvellacinto::scripted {

/// Carriers and radio technologies in the script's order. An information object reads the script
/// at each question.
class MORVELLACINTO_EXPORT ScriptedTelephony final : public platform::Telephony {
public:
    explicit ScriptedTelephony(ScriptPointer script);

    [[nodiscard]] std::unique_ptr<platform::TelephonyInfo> makeInfo() const override;

private:
    ScriptPointer script_;
};

} // namespace morvellacinto::scripted
