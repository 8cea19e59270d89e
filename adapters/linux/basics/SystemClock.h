#pragma once

#include "morvellacinto/platform/Clock.h"

namespace morvellacinto::native {

/// The machine's wall clock.
class SystemClock final : public platform::Clock {
public:
    [[nodiscard]] Date now() const override;
};

} // namespace morvellacinto::native
