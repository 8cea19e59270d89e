#include "StandardError.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <sys/uio.h>
#include <unistd.h>

namespace morvellacinto::native {

namespace {

iovec piece(std::string_view text) {
    // writev only reads, but its interface cannot say so.
    return {const_cast<char*>(text.data()), text.size()};
}

} // namespace

void writeLineToStandardError(std::string_view prefix, std::string_view text) noexcept {
    sigset_t brokenPipe;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    const iovec line[] = {piece(prefix), piece(text), piece("\n")};
    const auto written = writev(STDERR_FILENO, line, 3);
    if (written < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
        constexpr timespec atOnce{0, 0};
        sigtimedwait(&brokenPipe, nullptr, &atOnce);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace morvellacinto::native
