// SPDX-License-Identifier: MIT
#include "SettingsDatabase.h"

#include "ValueBlob.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <sqlite3.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace morvellacinto::native {

namespace {

// The log is cut to about the size at which SQLite empties it.
constexpr const char* openExisting = "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
                                     "PRAGMA secure_delete = FAST;"
                                     "PRAGMA journal_size_limit = 4194304";

// Keys are blobs: compared byte by byte, and whatever bytes a damaged file has read back as such.
// Nothing is journalled: a file that is not complete is thrown away.
constexpr const char* createLayout =
    "PRAGMA auto_vacuum = FULL; PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; BEGIN;"
    "CREATE TABLE entry (space INTEGER NOT NULL, key BLOB NOT NULL, stamp INTEGER NOT NULL,"
    " sum INTEGER NOT NULL, value BLOB NOT NULL, PRIMARY KEY (space, key)) WITHOUT ROWID;"
    "PRAGMA application_id = 0x4D564331; PRAGMA user_version = 1; COMMIT";
constexpr int applicationId = 0x4D564331;
constexpr int layoutVersion = 1;

// With SQLITE_ERROR it refuses our own words, which are fine, so the tables are not ours.
constexpr std::array damage{SQLITE_CORRUPT, SQLITE_NOTADB, SQLITE_SCHEMA, SQLITE_ERROR};

int waitWhileBusy(void* wait, int) { return static_cast<const Wait*>(wait)->goesOn() ? 1 : 0; }

// Over all columns, so that no part of one row passes for that of another.
std::int64_t checksum(Space space, std::string_view key, std::int64_t stamp,
                      std::string_view blob) {
    XXH64_hash_t hash = static_cast<XXH64_hash_t>(stamp) ^ static_cast<XXH64_hash_t>(space);
    hash = XXH3_64bits_withSeed(key.data(), key.size(), hash);
    return static_cast<std::int64_t>(XXH3_64bits_withSeed(blob.data(), blob.size(), hash));
}

std::string_view blobColumn(sqlite3_stmt* statement, int column) {
    const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

} // namespace

SettingsDatabase::SettingsDatabase(const std::filesystem::path& file, Wait& wait,
                                   const Entries* content)
    : file_(file), connection_(nullptr, sqlite3_close) {
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE |
                          SQLITE_OPEN_PRIVATECACHE;
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &opened, flags, nullptr);
    connection_.reset(opened);
    require(result == SQLITE_OK, result);
    const bool mayBeWritten = sqlite3_db_readonly(opened, "main") == 0;
    sqlite3_busy_handler(opened, waitWhileBusy, &wait);
    // Closing is quick, and leaves a damaged file as it is.
    sqlite3_db_config(opened, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    run(std::string("PRAGMA cell_size_check = ON;") +
        (content != nullptr ? createLayout : openExisting));
    if (numberOf("PRAGMA user_version") != layoutVersion ||
        numberOf("PRAGMA application_id") != applicationId ||
        (mayBeWritten && sqlite3_db_readonly(opened, "main") == 1)) { // says its header alone
        throw DamageError(file_.string() + " is no settings database");
    }
    if (content != nullptr) {
        write(*content);
        run("PRAGMA journal_mode = WAL");
        sqlite3_db_config(opened, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
    }
}

bool SettingsDatabase::wasMoved() const {
    int moved = 0;
    sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return moved != 0;
}

int SettingsDatabase::version() const { return numberOf("PRAGMA data_version"); }

std::size_t SettingsDatabase::read(Entries& rows) const {
    std::size_t damaged = 0;
    const Statement all = prepare("SELECT space, key, stamp, sum, value FROM entry");
    while (step(all)) {
        const Space space{sqlite3_column_int(all.get(), 0)};
        const std::string_view key = blobColumn(all.get(), 1);
        const std::string_view blob = blobColumn(all.get(), 4);
        const bool isSound = checksum(space, key, sqlite3_column_int64(all.get(), 2), blob) ==
                             sqlite3_column_int64(all.get(), 3);
        if (auto value = isSound ? decodeValue(blob) : std::nullopt) {
            rows.try_emplace({space, std::string(key)}, Entry{std::move(value), nullptr});
        } else {
            ++damaged;
        }
    }
    return damaged;
}

void SettingsDatabase::write(const Entries& changes) {
    std::int64_t stamp = 0; // makes the checksum of a value another one each time
    sqlite3_randomness(sizeof stamp, &stamp);
    const Statement store = prepare("REPLACE INTO entry (space, key, stamp, sum, value)"
                                    " VALUES (?1, ?2, ?3, ?4, ?5)");
    const Statement remove = prepare("DELETE FROM entry WHERE space = ?1 AND key = ?2");
    run("BEGIN IMMEDIATE"); // closing undoes what was not committed
    for (const auto& [name, entry] : changes) {
        const auto& [space, key] = name;
        const Statement& statement = entry.value ? store : remove;
        std::string encoded;
        sqlite3_bind_int(statement.get(), 1, static_cast<int>(space));
        sqlite3_bind_blob64(statement.get(), 2, key.data(), key.size(), SQLITE_STATIC);
        if (entry.value) {
            const std::string& blob =
                entry.blob ? *entry.blob : (encoded = encodeValue(*entry.value));
            sqlite3_bind_int64(statement.get(), 3, stamp);
            sqlite3_bind_int64(statement.get(), 4, checksum(space, key, stamp, blob));
            sqlite3_bind_blob64(statement.get(), 5, blob.data(), blob.size(), SQLITE_STATIC);
        }
        step(statement);
        sqlite3_reset(statement.get());
    }
    run("COMMIT");
}

void SettingsDatabase::require(bool isDone, int result) const {
    if (isDone) {
        return;
    }
    const std::string sentence = "the settings in " + file_.string() +
                                 " cannot be used: " + sqlite3_errmsg(connection_.get()) + " (" +
                                 std::to_string(result) + ")";
    if (std::find(damage.begin(), damage.end(), result & 0xFF) != damage.end()) {
        throw DamageError(sentence);
    }
    throw std::runtime_error(sentence);
}

void SettingsDatabase::run(const std::string& sql) const {
    const int result = sqlite3_exec(connection_.get(), sql.c_str(), nullptr, nullptr, nullptr);
    require(result == SQLITE_OK, result);
}

SettingsDatabase::Statement SettingsDatabase::prepare(const char* sql) const {
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite3_prepare_v2(connection_.get(), sql, -1, &statement, nullptr);
    require(result == SQLITE_OK, result);
    return {statement, sqlite3_finalize};
}

bool SettingsDatabase::step(const Statement& statement) const {
    const int result = sqlite3_step(statement.get());
    require(result == SQLITE_ROW || result == SQLITE_DONE, result);
    return result == SQLITE_ROW;
}

int SettingsDatabase::numberOf(const char* sql) const {
    const Statement statement = prepare(sql);
    step(statement);
    return sqlite3_column_int(statement.get(), 0);
}

} // namespace morvellacinto::native
