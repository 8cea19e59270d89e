#include "SystemClock.h"

#include <chrono>

namespace morvellacinto::native {

Date SystemClock::now() const {
    const std::chrono::duration<double> sinceReference =
        std::chrono::system_clock::now().time_since_epoch();
    return {sinceReference.count()};
}

} // namespace morvellacinto::native
