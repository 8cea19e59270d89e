#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// `text` with everything but letters, digits, '.', '-' and '_' as %XX.
[[nodiscard]] std::string percentEncoded(std::string_view text);

/// The files that the settings of one bundle live in.
///
/// What changes them throws std::system_error, and is only called with the lock on `lock()` held.
class SettingsFiles {
public:
    SettingsFiles(std::filesystem::path directory, std::string_view bundle);

    [[nodiscard]] const std::filesystem::path& database() const noexcept { return database_; }
    [[nodiscard]] const std::filesystem::path& lock() const noexcept { return lock_; }

    /// Whether there is a database that is not an empty file.
    [[nodiscard]] bool hasDatabase() const;
    /// What SQLite would not tell and rather drop: a sentence, empty when there is no such damage.
    /// Certain only while nobody commits.
    [[nodiscard]] std::string damage() const;

    /// Makes the directory and its missing parents, durably, for this user alone. Needs no lock.
    void createDirectory() const;

    /// Makes an empty database file where there is none, for this user alone.
    void createDatabase() const;

    /// Gives the database another name, and keeps the three newest that have such a name.
    /// Connections that have it open must notice by themselves. The new path.
    std::filesystem::path setAside() const;

private:
    void dropOldest() const;

    std::filesystem::path directory_;
    std::filesystem::path database_;
    std::filesystem::path lock_;
};

} // namespace morvellacinto::native
