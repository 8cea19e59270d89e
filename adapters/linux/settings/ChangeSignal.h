#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

namespace morvellacinto::native {

class FileLock;

/// A counter that all processes with the same settings open raise after each commit, so that
/// looking whether anything has changed costs one load from memory.
///
/// It lives in System V shared memory: unlike a mapped file, nothing that happens to the settings'
/// files can make reading it fail. The memory is marked for removal as soon as it is made, so it
/// goes with the last process that has it. Newcomers find it by the record that the first one left
/// in the lock file. Raising and reading may be done on any thread.
class ChangeSignal {
public:
    /// The signal that the record in the lock file names, or null.
    [[nodiscard]] static std::shared_ptr<ChangeSignal> find(const FileLock& lock);
    /// The same, or a new one with its record; null when the system offers none. The lock must be
    /// exclusive.
    [[nodiscard]] static std::shared_ptr<ChangeSignal> findOrMake(const FileLock& lock);
    ChangeSignal(const ChangeSignal&) = delete;
    ChangeSignal& operator=(const ChangeSignal&) = delete;
    ~ChangeSignal();

    /// Whether newcomers that look into the lock file would find this one.
    [[nodiscard]] bool isNamedIn(const FileLock& lock) const noexcept;
    [[nodiscard]] bool isNamedIn(const std::filesystem::path& lockFile) const noexcept;

    [[nodiscard]] std::uint64_t value() const noexcept;
    /// The value before.
    std::uint64_t raise() noexcept;

private:
    struct Segment;
    struct Record;
    ChangeSignal(Segment* segment, const Record& record) noexcept;
    [[nodiscard]] bool isNamedIn(int descriptor) const noexcept;

    Segment* segment_;
    std::unique_ptr<const Record> record_;
};

} // namespace morvellacinto::native
