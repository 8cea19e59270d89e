#pragma once

#include "Wait.h"
#include "morvellacinto/foundation/Value.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace morvellacinto::native {

/// Whose keys they are: neither reaches the other's.
enum class Space : int { settings = 0, adapter = 1 };

/// The database is not what was once written: it has to be replaced.
class DamageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One connection to a settings database. Not for use by several threads at once.
///
/// Operations throw DamageError, BusyError, or std::runtime_error for what may be over by the next
/// try, with a sentence that names the file.
class SettingsDatabase {
public:
    struct Row {
        Space space;
        std::string key;
        std::optional<Value> value; ///< nothing when it is damaged
    };
    struct Change {
        Space space;
        std::string key;
        std::shared_ptr<const std::string> blob; ///< null removes
    };

    /// Opens an existing database. Until its first `read` has ended, nobody may replace it.
    SettingsDatabase(const std::filesystem::path& file, const Wait& wait);

    /// Makes a database with this content of an empty file, all in that one; flushes nothing.
    static void fill(const std::filesystem::path& file, const std::vector<Change>& content,
                     const Wait& wait);

    /// Whether the file that is open no longer has the database's name.
    [[nodiscard]] bool wasMoved() const;
    /// For the operations that follow.
    void setWait(const Wait& wait) { *wait_ = wait; }
    /// A number that changes when another connection has committed; never 0.
    [[nodiscard]] int version() const;
    /// Appends all rows as they are at one moment. When it throws, those appended are sound.
    void read(std::vector<Row>& rows) const;
    /// Makes the changes in one transaction, and returns once they would survive loss of power.
    void write(const std::vector<Change>& changes);

private:
    using Connection = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;
    using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

    SettingsDatabase(const std::filesystem::path& file, const Wait& wait,
                     const std::string& preparation);
    [[noreturn]] void fail(int result) const;
    void run(const std::string& sql);
    [[nodiscard]] Statement prepare(const char* sql) const;
    bool step(const Statement& statement) const;
    [[nodiscard]] int numberOf(const char* sql) const;

    std::filesystem::path file_;
    std::unique_ptr<Wait> wait_; // SQLite knows its address
    Connection connection_;
};

} // namespace morvellacinto::native
