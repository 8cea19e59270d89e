// SPDX-License-Identifier: MIT
#include "StopSignal.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <system_error>

namespace morvellacinto::native {

StopSignal::StopSignal() : descriptor_(openEventDescriptor()) {}

StopSignal::~StopSignal() { close(descriptor_); }

void StopSignal::raise() noexcept {
    if (!isForkedChild()) {
        isRaised_ = true;
        eventfd_write(descriptor_, 1);
    }
}

int openEventDescriptor() {
    const int descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "no event descriptor is left");
    }
    return descriptor;
}

} // namespace morvellacinto::native
