#include "FileLock.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace morvellacinto::native {

namespace {

constexpr std::chrono::microseconds firstPause(100);
constexpr std::chrono::microseconds longestPause(5000);

} // namespace

FileLock::FileLock(const std::filesystem::path& file, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::chrono::microseconds pause = firstPause;
    while (!tryLock(file)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            throw std::system_error(std::make_error_code(std::errc::timed_out),
                                    "waiting for " + file.string());
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, longestPause);
    }
}

FileLock::~FileLock() {
    // Unlocked by name: a child made by fork() meanwhile shares the lock, and keeps it on close.
    flock(descriptor_, LOCK_UN);
    ::close(descriptor_);
}

bool FileLock::tryLock(const std::filesystem::path& file) {
    descriptor_ = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), "opening " + file.string());
    }
    // What is locked may have been deleted since it was opened; newcomers would lock another file.
    struct stat locked {};
    struct stat named {};
    errno = 0;
    if (flock(descriptor_, LOCK_EX | LOCK_NB) == 0 && fstat(descriptor_, &locked) == 0 &&
        stat(file.c_str(), &named) == 0 && locked.st_dev == named.st_dev &&
        locked.st_ino == named.st_ino) {
        return true;
    }
    const int error = errno;
    ::close(descriptor_);
    if (error != EWOULDBLOCK && error != EINTR && error != ENOENT && error != 0) {
        throw std::system_error(error, std::generic_category(), "locking " + file.string());
    }
    return false;
}

} // namespace morvellacinto::native
