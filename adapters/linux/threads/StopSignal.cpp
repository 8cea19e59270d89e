#include "StopSignal.h"

#include <cerrno>
#include <string>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace morvellacinto::native {

StopSignal::StopSignal() : descriptor_(openEventDescriptor("the signal to stop")) {}

StopSignal::~StopSignal() { close(descriptor_); }

void StopSignal::raise() noexcept {
    isRaised_ = true;
    eventfd_write(descriptor_, 1);
}

int openEventDescriptor(const char* purpose) {
    const int descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(),
                                std::string("no event descriptor for ") + purpose);
    }
    return descriptor;
}

} // namespace morvellacinto::native
