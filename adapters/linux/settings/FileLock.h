#pragma once

#include "Patience.h"

#include <filesystem>
#include <utility>

namespace morvellacinto::native {

/// A lock on a file among processes, and among the threads of one, held while it lives: by one
/// alone, or shared by those who do not mind each other. Freed by the system when the process dies.
class FileLock {
public:
    enum class Kind { shared, exclusive };

    /// Makes the file when it is missing. Throws std::system_error: std::errc::timed_out when
    /// `patience` is over before others let the lock go, else why the file cannot be locked.
    FileLock(const std::filesystem::path& file, Kind kind, const Patience& patience);
    FileLock(FileLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileLock& operator=(FileLock&&) = delete;
    ~FileLock();

    /// The open lock file, readable and writable.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }

private:
    int descriptor_;
};

} // namespace morvellacinto::native
