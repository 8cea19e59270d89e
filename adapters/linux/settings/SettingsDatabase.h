#pragma once

#include "Patience.h"
#include "morvellacinto/foundation/Value.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace morvellacinto::native {

/// Whose keys they are: neither reaches the other's.
enum class Space : int { settings = 0, adapter = 1 };
inline constexpr std::array spaces{Space::settings, Space::adapter};

/// The database is not what was once written: it has to be replaced.
class DamageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One connection to a settings database. Not for use by several threads at once.
///
/// Operations throw DamageError, or std::runtime_error for what may be over by the next try, with a
/// sentence that names the file.
class SettingsDatabase {
public:
    struct Row {
        Space space;
        std::string key;
        std::int64_t stamp; ///< drawn at random for each commit; never 0
        bool loaded;        ///< false when the stamp was known, so that the value was not read
        std::optional<Value> value; ///< nothing when not loaded, or when it is damaged
    };
    struct Change {
        Space space;
        std::string key;
        std::shared_ptr<const std::string> blob; ///< null removes
    };

    enum class Layout { mustBeThere, mayBeMade };

    /// Opens an existing file. An empty one becomes a settings database when that may be; the
    /// caller then keeps others from doing the same, and in any case from replacing the file.
    SettingsDatabase(const std::filesystem::path& file, Layout layout, const Patience& patience);
    SettingsDatabase(const SettingsDatabase&) = delete;
    SettingsDatabase& operator=(const SettingsDatabase&) = delete;
    ~SettingsDatabase();

    /// Whether the file that is open no longer has the database's name.
    [[nodiscard]] bool wasMoved() const;

    /// For the operations that follow.
    void setPatience(const Patience& patience) { patience_ = patience; }

    /// A number that changes when another connection has committed.
    [[nodiscard]] std::int64_t version();

    /// Appends all rows as they are at one moment; `known` gives the stamp under which a value is
    /// known already, or 0. When it throws, the rows appended by then are sound.
    void read(const std::function<std::int64_t(Space, std::string_view)>& known,
              std::vector<Row>& rows);

    /// Makes the changes in one transaction, and returns their stamp once they would survive loss
    /// of power.
    std::int64_t write(std::span<const Change> changes);

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };
    struct Closer {
        void operator()(sqlite3* connection) const noexcept;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

    // One of the files that are open, as it was when last looked at.
    struct OpenFile {
        std::filesystem::path path;
        std::uintmax_t device = 0;
        std::uintmax_t number = 0; // 0: there was none
        std::uintmax_t size = 0;
    };

    static int waitWhileBusy(void* database, int calls);
    static int checkpointSometimes(void* database, sqlite3* connection, const char* name,
                                   int pagesInLog);
    void rememberFiles();
    void checkFiles();
    [[noreturn]] void fail(const char* doing, int result) const;
    void run(const char* sql);
    [[nodiscard]] std::int64_t queryNumber(const char* sql);
    [[nodiscard]] Statement prepare(const char* sql);
    void createLayout();
    bool step(const Statement& statement, const char* doing);
    void loadValue(Row& row);
    void rollBack() noexcept;

    std::filesystem::path file_;
    Patience patience_;
    std::array<OpenFile, 3> openFiles_;
    int pagesInLog_ = 0; // after the last commit
    std::unique_ptr<sqlite3, Closer> connection_;
    Statement begin_;
    Statement beginWrite_;
    Statement commit_;
    Statement version_;
    Statement list_;
    Statement load_;
    Statement store_;
    Statement remove_;
};

} // namespace morvellacinto::native
