#include "FileLock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace morvellacinto::native {

namespace {

// Short beside what the lock is held for, which takes some flushes to disk.
constexpr std::chrono::microseconds pause(300);

int openLockFile(const std::filesystem::path& file) {
    const int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "opening " + file.string());
    }
    return descriptor;
}

// Whether the open file still has its name: newcomers would lock another one.
bool isNamed(int descriptor, const std::filesystem::path& file) {
    struct stat locked {};
    struct stat named {};
    return fstat(descriptor, &locked) == 0 && stat(file.c_str(), &named) == 0 &&
           locked.st_dev == named.st_dev && locked.st_ino == named.st_ino;
}

} // namespace

FileLock::FileLock(const std::filesystem::path& file, Kind kind, const Patience& patience)
    : descriptor_(openLockFile(file)) {
    const int operation = (kind == Kind::shared ? LOCK_SH : LOCK_EX) | LOCK_NB;
    while (true) {
        if (flock(descriptor_, operation) == 0) {
            if (isNamed(descriptor_, file)) {
                return;
            }
            ::close(std::exchange(descriptor_, -1));
            descriptor_ = openLockFile(file);
            continue;
        }
        const int error = errno;
        const bool mayStillCome = error == EWOULDBLOCK || error == EINTR;
        if (!mayStillCome || patience.isOver()) {
            ::close(descriptor_);
            throw std::system_error(mayStillCome ? ETIMEDOUT : error, std::generic_category(),
                                    "locking " + file.string());
        }
        std::this_thread::sleep_for(pause);
    }
}

FileLock::~FileLock() {
    if (descriptor_ < 0) {
        return;
    }
    // Unlocked by name: a child made by fork() meanwhile shares the lock, and keeps it on close.
    flock(descriptor_, LOCK_UN);
    ::close(descriptor_);
}

} // namespace morvellacinto::native
