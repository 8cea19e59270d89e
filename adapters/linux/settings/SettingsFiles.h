#pragma once

#include "Wait.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// `text` with everything but letters, digits, '.', '-' and '_' as %XX.
[[nodiscard]] std::string percentEncoded(std::string_view text);

/// The files that the settings of one bundle live in.
///
/// A new database is filled as `draft()`, becomes complete with `completeDraft()` and the database
/// with `installDraft()`; a process killed in between leaves the old database, or the complete
/// draft for the next one to install. Failures leave as exceptions with a sentence.
class SettingsFiles {
public:
    /// Whoever uses the database's name, to open it or to commit, shares the lock; whoever changes
    /// which file that is has it alone. It belongs to the directory.
    using Lock = std::shared_ptr<void>;
    enum class Sharing { shared, alone };

    SettingsFiles(const std::filesystem::path& directory, std::string_view bundle);

    /// Waits for the lock; makes the directory when it is missing, for this user alone.
    [[nodiscard]] Lock lock(Sharing sharing, const Wait& wait) const;

    [[nodiscard]] const std::filesystem::path& database() const noexcept { return database_; }
    /// Throws for files that others could have a hand in, or that are no regular ones.
    [[nodiscard]] bool hasDatabase() const;
    /// Whether somebody was kept from installing a complete draft after the database was set aside.
    [[nodiscard]] bool hasOrphanedDraft() const;

    /// These need the lock for oneself alone. An empty file of this user's:
    [[nodiscard]] std::filesystem::path draft() const;
    void completeDraft() const;
    /// Sets the database aside, in place of the one set aside before, and puts the complete draft
    /// in its place.
    void installDraft() const;

private:
    std::filesystem::path directory_;
    std::filesystem::path database_;
    std::filesystem::path draft_;
    std::filesystem::path complete_;
    std::filesystem::path aside_;
};

} // namespace morvellacinto::native
