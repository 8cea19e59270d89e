#include "SettingsDatabase.h"

#include "ValueBlob.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sqlite3.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace morvellacinto::native {

namespace {

constexpr std::int64_t applicationId = 0x4D564331;
constexpr std::int64_t layoutVersion = 1;

// Settings that are in the database file outlive their log, so it is kept shorter than SQLite would
// keep it, but a checkpoint costs about as much as two commits and waits until there were many.
constexpr int fewestPagesInLog = 64;
constexpr int mostPagesInLog = 1000;
constexpr int commitsInLog = 40;

constexpr std::chrono::microseconds firstBusyPause(100);
constexpr std::chrono::microseconds longestBusyPause(1000);

// Keys are blobs: compared byte by byte, and whatever bytes a damaged file has read back as such.
constexpr const char* createTable = "CREATE TABLE entry (space INTEGER NOT NULL, key BLOB NOT NULL,"
                                    " stamp INTEGER NOT NULL, sum INTEGER NOT NULL,"
                                    " value BLOB NOT NULL, PRIMARY KEY (space, key)) WITHOUT ROWID";

bool isDamage(int result) {
    switch (result & 0xFF) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
    case SQLITE_SCHEMA:
    case SQLITE_ERROR: // our own words are fine, so the tables are not ours
        return true;
    default:
        return false;
    }
}

std::int64_t randomStamp() {
    std::int64_t stamp = 0;
    while (stamp == 0) {
        if (getrandom(&stamp, sizeof stamp, 0) != static_cast<ssize_t>(sizeof stamp)) {
            stamp = 0;
        }
    }
    return stamp;
}

// Over all columns, so that no part of one row passes for that of another.
std::int64_t checksum(Space space, std::string_view key, std::int64_t stamp,
                      std::string_view blob) {
    XXH64_hash_t hash = static_cast<XXH64_hash_t>(stamp) ^ static_cast<XXH64_hash_t>(space);
    hash = XXH3_64bits_withSeed(key.data(), key.size(), hash);
    return static_cast<std::int64_t>(XXH3_64bits_withSeed(blob.data(), blob.size(), hash));
}

std::string_view blobColumn(sqlite3_stmt* statement, int column) {
    const void* bytes = sqlite3_column_blob(statement, column);
    const int length = sqlite3_column_bytes(statement, column);
    return {static_cast<const char*>(bytes),
            bytes == nullptr ? 0 : static_cast<std::size_t>(length)};
}

void bindBlob(sqlite3_stmt* statement, int parameter, std::string_view bytes) {
    // An empty view may have no address, which SQLite would take for NULL. The bytes outlive the
    // statement's run.
    sqlite3_bind_blob64(statement, parameter, bytes.empty() ? "" : bytes.data(), bytes.size(),
                        SQLITE_STATIC);
}

// A statement that stays in mid-run would keep its transaction open.
class Reset {
public:
    explicit Reset(sqlite3_stmt* statement) : statement_(statement) {}
    Reset(const Reset&) = delete;
    Reset& operator=(const Reset&) = delete;
    ~Reset() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }

private:
    sqlite3_stmt* statement_;
};

} // namespace

void SettingsDatabase::Finalizer::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

void SettingsDatabase::Closer::operator()(sqlite3* connection) const noexcept {
    sqlite3_close(connection);
}

SettingsDatabase::SettingsDatabase(const std::filesystem::path& file, Layout layout,
                                   const Patience& patience)
    : file_(file), patience_(patience) {
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &opened,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX |
                                           SQLITE_OPEN_EXRESCODE | SQLITE_OPEN_PRIVATECACHE,
                                       nullptr);
    connection_.reset(opened);
    if (result != SQLITE_OK) {
        fail("opened", result);
    }
    // SQLite falls back to opening a file to read, for whatever reason.
    const bool openedToRead = sqlite3_db_readonly(opened, "main") == 1;
    if (openedToRead && access(file.c_str(), W_OK) == 0) {
        throw std::runtime_error("the settings in " + file_.string() + " could only be read");
    }
    sqlite3_busy_handler(opened, waitWhileBusy, this);
    sqlite3_wal_hook(opened, checkpointSometimes, this);
    // Closing must be quick: what is in the write-ahead log is durable and stays there.
    sqlite3_db_config(opened, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    run("PRAGMA cell_size_check = ON");

    const std::int64_t version = queryNumber("PRAGMA user_version");
    if (version == 0 && layout == Layout::mayBeMade) {
        createLayout();
    } else if (version != layoutVersion || queryNumber("PRAGMA application_id") != applicationId) {
        throw DamageError(file_.string() + " is no settings database");
    }
    if (!openedToRead && sqlite3_db_readonly(opened, "main") == 1) {
        throw DamageError(file_.string() + " forbids to be written, which its file does not");
    }
    run("PRAGMA journal_mode = WAL");
    run("PRAGMA journal_size_limit = -1"); // a log that is cut has been cut by somebody else
    run("PRAGMA synchronous = FULL");
    begin_ = prepare("BEGIN");
    beginWrite_ = prepare("BEGIN IMMEDIATE");
    commit_ = prepare("COMMIT");
    version_ = prepare("PRAGMA data_version");
    list_ = prepare("SELECT space, key, stamp FROM entry");
    load_ = prepare("SELECT sum, value FROM entry WHERE space = ?1 AND key = ?2");
    store_ = prepare("INSERT INTO entry (space, key, stamp, sum, value) VALUES (?1, ?2, ?3, ?4, ?5)"
                     " ON CONFLICT (space, key) DO UPDATE"
                     " SET stamp = ?3, sum = ?4, value = ?5");
    remove_ = prepare("DELETE FROM entry WHERE space = ?1 AND key = ?2");
    rememberFiles();
}

SettingsDatabase::~SettingsDatabase() = default;

bool SettingsDatabase::wasMoved() const {
    int moved = 0;
    return sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) ==
               SQLITE_OK &&
           moved != 0;
}

// SQLite's own pauses are many times as long as a commit takes.
int SettingsDatabase::waitWhileBusy(void* database, int calls) {
    if (static_cast<SettingsDatabase*>(database)->patience_.isOver()) {
        return 0;
    }
    std::this_thread::sleep_for(
        std::min(firstBusyPause * (1 << std::min(calls, 4)), longestBusyPause));
    return 1;
}

int SettingsDatabase::checkpointSometimes(void* database, sqlite3* connection, const char* name,
                                          int pagesInLog) {
    auto* self = static_cast<SettingsDatabase*>(database);
    const int written = pagesInLog - std::exchange(self->pagesInLog_, pagesInLog);
    if (pagesInLog / commitsInLog >= written ? pagesInLog >= fewestPagesInLog
                                             : pagesInLog >= mostPagesInLog) {
        // The commit has succeeded whether or not this does.
        sqlite3_wal_checkpoint_v2(connection, name, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    }
    return SQLITE_OK;
}

void SettingsDatabase::rememberFiles() {
    const std::array suffixes{"", "-wal", "-shm"};
    for (std::size_t index = 0; index < suffixes.size(); ++index) {
        OpenFile& file = openFiles_[index];
        file.path = file_;
        file.path += suffixes[index];
        struct stat status {};
        if (stat(file.path.c_str(), &status) == 0) {
            file.device = status.st_dev;
            file.number = status.st_ino;
            file.size = static_cast<std::uintmax_t>(status.st_size);
        }
    }
}

// SQLite does not look whether its files are still there: it would go on and commit to a log that
// nobody else can find, or that has lost its beginning.
void SettingsDatabase::checkFiles() {
    if (wasMoved()) {
        return;
    }
    for (OpenFile& file : openFiles_) {
        if (file.number == 0) {
            continue;
        }
        struct stat status {};
        if (stat(file.path.c_str(), &status) != 0) {
            if (errno == ENOENT) {
                throw DamageError(file.path.string() + " was deleted while it was in use");
            }
            continue;
        }
        if (status.st_dev != file.device || status.st_ino != file.number) {
            throw DamageError(file.path.string() + " was replaced while it was in use");
        }
        const auto size = static_cast<std::uintmax_t>(status.st_size);
        if (size < file.size) {
            throw DamageError(file.path.string() + " was cut to " + std::to_string(size) +
                              " bytes while it was in use");
        }
        file.size = size;
    }
}

std::int64_t SettingsDatabase::version() {
    checkFiles();
    const Reset reset(version_.get());
    step(version_, "read");
    return sqlite3_column_int64(version_.get(), 0);
}

void SettingsDatabase::read(const std::function<std::int64_t(Space, std::string_view)>& known,
                            std::vector<Row>& rows) {
    try {
        {
            const Reset reset(begin_.get());
            step(begin_, "read");
        }
        const Reset reset(list_.get());
        while (step(list_, "read")) {
            const int space = sqlite3_column_int(list_.get(), 0);
            if (space != static_cast<int>(Space::settings) &&
                space != static_cast<int>(Space::adapter)) {
                continue;
            }
            Row row{Space{space}, std::string(blobColumn(list_.get(), 1)),
                    sqlite3_column_int64(list_.get(), 2), false, std::nullopt};
            if (known(row.space, row.key) != row.stamp) {
                loadValue(row);
            }
            rows.push_back(std::move(row));
        }
    } catch (...) {
        rollBack();
        throw;
    }
    rollBack();
}

std::int64_t SettingsDatabase::write(std::span<const Change> changes) {
    checkFiles();
    const std::int64_t stamp = randomStamp();
    try {
        {
            const Reset reset(beginWrite_.get());
            step(beginWrite_, "locked");
        }
        for (const Change& change : changes) {
            const Statement& statement = change.blob == nullptr ? remove_ : store_;
            const Reset reset(statement.get());
            sqlite3_bind_int(statement.get(), 1, static_cast<int>(change.space));
            bindBlob(statement.get(), 2, change.key);
            if (change.blob != nullptr) {
                sqlite3_bind_int64(statement.get(), 3, stamp);
                sqlite3_bind_int64(statement.get(), 4,
                                   checksum(change.space, change.key, stamp, *change.blob));
                bindBlob(statement.get(), 5, *change.blob);
            }
            step(statement, "written");
        }
        const Reset reset(commit_.get());
        step(commit_, "written");
    } catch (...) {
        rollBack();
        throw;
    }
    return stamp;
}

void SettingsDatabase::fail(const char* doing, int result) const {
    const std::string sentence = "the settings in " + file_.string() + " could not be " + doing +
                                 ": " + sqlite3_errmsg(connection_.get()) + " (" +
                                 std::to_string(result) + ")";
    if (isDamage(result)) {
        throw DamageError(sentence);
    }
    throw std::runtime_error(sentence);
}

void SettingsDatabase::run(const char* sql) {
    const int result = sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) {
        fail("opened", result);
    }
}

std::int64_t SettingsDatabase::queryNumber(const char* sql) {
    const Statement statement = prepare(sql);
    step(statement, "opened");
    return sqlite3_column_int64(statement.get(), 0);
}

SettingsDatabase::Statement SettingsDatabase::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite3_prepare_v3(connection_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT,
                                          &statement, nullptr);
    if (result != SQLITE_OK) {
        fail("opened", result);
    }
    return Statement(statement);
}

void SettingsDatabase::createLayout() {
    try {
        run("PRAGMA journal_mode = WAL");
        run("PRAGMA synchronous = FULL");
        run("BEGIN IMMEDIATE");
        run(createTable);
        run(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
        run(("PRAGMA user_version = " + std::to_string(layoutVersion)).c_str());
        run("COMMIT");
    } catch (...) {
        rollBack();
        throw;
    }
}

bool SettingsDatabase::step(const Statement& statement, const char* doing) {
    const int result = sqlite3_step(statement.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        fail(doing, result);
    }
    return result == SQLITE_ROW;
}

void SettingsDatabase::loadValue(Row& row) {
    const Reset reset(load_.get());
    sqlite3_bind_int(load_.get(), 1, static_cast<int>(row.space));
    bindBlob(load_.get(), 2, row.key);
    row.loaded = true;
    if (!step(load_, "read")) {
        return; // listed but not found: damage has put the keys out of order
    }
    const std::string_view blob = blobColumn(load_.get(), 1);
    if (checksum(row.space, row.key, row.stamp, blob) == sqlite3_column_int64(load_.get(), 0)) {
        row.value = decodeValue(blob);
    }
}

void SettingsDatabase::rollBack() noexcept {
    if (sqlite3_get_autocommit(connection_.get()) == 0) {
        sqlite3_exec(connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

} // namespace morvellacinto::native
