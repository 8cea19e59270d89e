#pragma once

#include <chrono>
#include <filesystem>

namespace morvellacinto::native {

/// An exclusive lock among processes, and among the threads of one, held while it lives. Freed by
/// the system when the process dies.
class FileLock {
public:
    /// Makes the file when it is missing. Throws std::system_error: std::errc::timed_out when
    /// others hold the lock for longer than `patience`, else why the file cannot be opened.
    FileLock(const std::filesystem::path& file, std::chrono::milliseconds patience);
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

    /// The open lock file, readable and writable.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }

private:
    int descriptor_;
};

} // namespace morvellacinto::native
