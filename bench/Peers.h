// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <string_view>

namespace morvellacinto::bench {

/// A new folder on the disk of the working directory, gone with this object.
class Folder {
public:
    Folder() : path_("bench-XXXXXX") {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no folder can be made here");
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }
    [[nodiscard]] std::string file(const char* name) const { return path_ + '/' + name; }

private:
    std::string path_;
};

inline void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

/// The settings' database without this library.
class BareSqlite {
public:
    explicit BareSqlite(const std::string& path) {
        require(sqlite3_open_v2(path.c_str(), &connection_,
                                SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                                nullptr) == SQLITE_OK,
                "no database");
        for (const char* sql : {"PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL",
                                "CREATE TABLE IF NOT EXISTS entry (key BLOB PRIMARY KEY, value "
                                "BLOB) WITHOUT ROWID"}) {
            require(sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
        }
        begin_ = prepare("BEGIN IMMEDIATE");
        store_ = prepare("INSERT INTO entry VALUES (?1, ?2)"
                         " ON CONFLICT (key) DO UPDATE SET value = ?2");
        commit_ = prepare("COMMIT");
    }
    BareSqlite(const BareSqlite&) = delete;
    BareSqlite& operator=(const BareSqlite&) = delete;
    ~BareSqlite() {
        for (sqlite3_stmt* statement : {begin_, store_, commit_}) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(connection_);
    }
    void store(std::string_view key, std::string_view blob) {
        run(begin_);
        sqlite3_bind_blob(store_, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        sqlite3_bind_blob(store_, 2, blob.data(), static_cast<int>(blob.size()), SQLITE_STATIC);
        run(store_);
        run(commit_);
    }

    /// The caller finalises it.
    sqlite3_stmt* prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        require(sqlite3_prepare_v2(connection_, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
        return statement;
    }

private:
    static void run(sqlite3_stmt* statement) {
        require(sqlite3_step(statement) == SQLITE_DONE, "no step");
        sqlite3_reset(statement);
    }

    sqlite3* connection_ = nullptr;
    sqlite3_stmt* begin_ = nullptr;
    sqlite3_stmt* store_ = nullptr;
    sqlite3_stmt* commit_ = nullptr;
};

/// Values in memory without this library.
class MapUnderMutex {
public:
    void set(const std::string& key, Value value) { map_[key] = std::move(value); }
    [[nodiscard]] std::optional<Value> find(const std::string& key) const {
        const std::shared_lock lock(mutex_);
        const auto found = map_.find(key);
        return found == map_.end() ? std::nullopt : std::optional<Value>(found->second);
    }

private:
    mutable std::shared_mutex mutex_;
    std::map<std::string, Value> map_;
};

} // namespace morvellacinto::bench
