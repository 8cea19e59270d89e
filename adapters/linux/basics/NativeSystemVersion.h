#pragma once

#include "morvellacinto/platform/SystemVersion.h"

namespace morvellacinto::native {

/// The generation of services that this adapter offers: 14.0, whatever the distribution calls
/// itself.
class NativeSystemVersion final : public platform::SystemVersion {
public:
    [[nodiscard]] bool isAtLeast(int major, int minor) const override;
};

} // namespace morvellacinto::native
