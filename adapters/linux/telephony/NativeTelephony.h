#pragma once

#include "morvellacinto/platform/Telephony.h"

namespace morvellacinto::native {

/// A device without telephony: this adapter has no source for it.
class NativeTelephony final : public platform::Telephony {
public:
    [[nodiscard]] std::unique_ptr<platform::TelephonyInfo> makeInfo() const override;
};

} // namespace morvellacinto::native
