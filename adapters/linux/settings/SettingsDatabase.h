// SPDX-License-Identifier: MIT
#pragma once

#include "SettingsFiles.h"
#include "morvellacinto/foundation/Value.h"

#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

struct sqlite3;
struct sqlite3_stmt;

namespace morvellacinto::native {

/// Whose keys they are: neither reaches the other's.
enum class Space : int { settings = 0, adapter = 1 };

struct Entry {
    std::optional<Value> value;              ///< nothing removes
    std::shared_ptr<const std::string> blob; ///< null unless the value was just encoded
};
using Name = std::pair<Space, std::string_view>;
struct NameOrder {
    using is_transparent = void;
    bool operator()(const Name& left, const Name& right) const noexcept { return left < right; }
};
using Entries = std::map<std::pair<Space, std::string>, Entry, NameOrder>;

/// The database is not what was once written: it has to be replaced.
class DamageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One connection to a settings database. Not for use by several threads at once.
/// Operations throw DamageError, or std::runtime_error for what may be over by the next try, with a
/// sentence that names the file.
class SettingsDatabase {
public:
    /// Opens an existing database; until its first `read` has ended, nobody may replace it. With
    /// `content` it makes one with that of an empty file, all in that one, and flushes nothing.
    /// `wait` outlives this, and is what each operation may wait when it begins.
    SettingsDatabase(const std::filesystem::path& file, Wait& wait,
                     const Entries* content = nullptr);

    /// Whether the file that is open no longer has the database's name.
    [[nodiscard]] bool wasMoved() const;
    /// A number that changes when another connection has committed; never 0.
    [[nodiscard]] int version() const;
    /// Adds the sound rows that `rows` lacks, as they are at one moment, and counts those that are
    /// damaged. When it throws, the rows before the failure have been added.
    std::size_t read(Entries& rows) const;
    /// Makes the changes in one transaction, and returns once they would survive loss of power.
    void write(const Entries& changes);

private:
    using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

    void require(bool isDone, int result) const;
    void run(const std::string& sql) const;
    [[nodiscard]] Statement prepare(const char* sql) const;
    bool step(const Statement& statement) const;
    [[nodiscard]] int numberOf(const char* sql) const;

    const std::filesystem::path file_;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection_;
};

} // namespace morvellacinto::native
