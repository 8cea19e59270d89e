// Storing and reading one setting, beside what the same costs without this library.
//
// Each store row ends with the bytes on disk. Counters: "of_floor" is the time over that of a
// write and flush of 4 KB, "of_sqlite" over that of the same commit made with bare SQLite, and
// "of_map" the time of a read over that of a look-up in a map under a shared mutex. All rows of a
// comparison are measured in turn inside one row, so that whatever else the machine does hits all.

#include "settings/SqliteDefaults.h"
#include "settings/ValueBlob.h"

#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace {

using morvellacinto::Array;
using morvellacinto::Object;
using morvellacinto::Value;
using morvellacinto::native::SqliteDefaults;
using Clock = std::chrono::steady_clock;

constexpr const char* key = "se.kovra.v5.KRAudiences";

class Folder {
public:
    Folder() : path_("settings-bench-XXXXXX") {
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

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

/// A service's answer of about `bytes` bytes: tags of a few dozen bytes each.
Value answerOf(std::size_t bytes) {
    Array tags;
    for (std::size_t size = 60; size < bytes; size += 45) {
        tags.append("segment-" + std::to_string(size) + "-abcdefghijklmnopqrstuvwxyz");
    }
    return Object{{"tags", tags}, {"mapping", Object{{"region", "north"}, {"level", 3}}}};
}

class RawFile {
public:
    explicit RawFile(const std::string& path)
        : descriptor_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        require(descriptor_ >= 0 && pwrite(descriptor_, page_.data(), page_.size(), 0) > 0 &&
                    fsync(descriptor_) == 0,
                "no file");
    }
    RawFile(const RawFile&) = delete;
    RawFile& operator=(const RawFile&) = delete;
    ~RawFile() { close(descriptor_); }
    void store() {
        ++page_[0];
        require(pwrite(descriptor_, page_.data(), page_.size(), 0) ==
                        static_cast<ssize_t>(page_.size()) &&
                    fdatasync(descriptor_) == 0,
                "no write");
    }

private:
    std::string page_ = std::string(4096, 'p');
    int descriptor_;
};

class BareSqlite {
public:
    explicit BareSqlite(const std::string& path) {
        require(sqlite3_open_v2(path.c_str(), &connection_,
                                SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                                nullptr) == SQLITE_OK,
                "no database");
        for (const char* sql :
             {"PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL",
              "CREATE TABLE entry (key BLOB PRIMARY KEY, value BLOB) WITHOUT ROWID"}) {
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
    void store(const std::string& blob) {
        run(begin_);
        sqlite3_bind_blob(store_, 1, key, static_cast<int>(std::string_view(key).size()),
                          SQLITE_STATIC);
        sqlite3_bind_blob(store_, 2, blob.data(), static_cast<int>(blob.size()), SQLITE_STATIC);
        run(store_);
        run(commit_);
    }

private:
    sqlite3_stmt* prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        require(sqlite3_prepare_v2(connection_, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
        return statement;
    }
    static void run(sqlite3_stmt* statement) {
        require(sqlite3_step(statement) == SQLITE_DONE, "no step");
        sqlite3_reset(statement);
    }

    sqlite3* connection_ = nullptr;
    sqlite3_stmt* begin_ = nullptr;
    sqlite3_stmt* store_ = nullptr;
    sqlite3_stmt* commit_ = nullptr;
};

class Lmdb {
public:
    explicit Lmdb(const std::string& path) {
        require(mdb_env_create(&environment_) == 0 &&
                    mdb_env_set_mapsize(environment_, std::size_t{64} << 20U) == 0 &&
                    mdb_env_open(environment_, path.c_str(), MDB_NOSUBDIR, 0600) == 0,
                "no environment");
        MDB_txn* transaction = nullptr;
        require(mdb_txn_begin(environment_, nullptr, 0, &transaction) == 0 &&
                    mdb_dbi_open(transaction, nullptr, 0, &database_) == 0 &&
                    mdb_txn_commit(transaction) == 0,
                "no table");
    }
    Lmdb(const Lmdb&) = delete;
    Lmdb& operator=(const Lmdb&) = delete;
    ~Lmdb() { mdb_env_close(environment_); }
    void store(std::string& blob) {
        std::string name = key;
        MDB_val nameOf{name.size(), name.data()};
        MDB_val value{blob.size(), blob.data()};
        MDB_txn* transaction = nullptr;
        require(mdb_txn_begin(environment_, nullptr, 0, &transaction) == 0 &&
                    mdb_put(transaction, database_, &nameOf, &value, 0) == 0 &&
                    mdb_txn_commit(transaction) == 0,
                "no commit");
    }

private:
    MDB_env* environment_ = nullptr;
    MDB_dbi database_ = 0;
};

double secondsOf(const std::function<void()>& work) {
    const auto begun = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - begun).count();
}

double median(std::vector<double>& samples) {
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
}

// Its time is that of one store and flush of ours.
void storeAndFlush(benchmark::State& state) {
    const Value value = answerOf(static_cast<std::size_t>(state.range(0)));
    std::string blob = morvellacinto::native::encodeValue(value);
    const Folder folder;
    RawFile floor(folder.file("floor"));
    BareSqlite sqlite(folder.file("sqlite"));
    Lmdb lmdb(folder.file("lmdb"));
    SqliteDefaults ours(folder.file("ours"), "bench", {});
    std::vector<double> floorTimes;
    std::vector<double> sqliteTimes;
    std::vector<double> lmdbTimes;
    std::vector<double> ourTimes;
    for ([[maybe_unused]] auto unused : state) {
        ++blob.back();
        floorTimes.push_back(secondsOf([&] { floor.store(); }));
        sqliteTimes.push_back(secondsOf([&] { sqlite.store(blob); }));
        lmdbTimes.push_back(secondsOf([&] { lmdb.store(blob); }));
        ourTimes.push_back(secondsOf([&] {
            ours.setObjectForKey(value, key);
            require(ours.synchronize(), "no flush");
        }));
        state.SetIterationTime(ourTimes.back());
    }
    const double oursMedian = median(ourTimes);
    const double sqliteMedian = median(sqliteTimes);
    state.counters["us"] = oursMedian * 1e6;
    state.counters["floor_us"] = median(floorTimes) * 1e6;
    state.counters["sqlite_us"] = sqliteMedian * 1e6;
    state.counters["lmdb_us"] = median(lmdbTimes) * 1e6;
    state.counters["of_floor"] = oursMedian / median(floorTimes);
    state.counters["of_lmdb"] = oursMedian / median(lmdbTimes);
    state.counters["of_sqlite"] = oursMedian / sqliteMedian;
}
BENCHMARK(storeAndFlush)
    ->Arg(300)
    ->Arg(100'000)
    ->UseManualTime()
    ->Iterations(1500)
    ->Unit(benchmark::kMicrosecond);

template <class Map>
class MapUnderMutex {
public:
    explicit MapUnderMutex(const Value& value) {
        for (const char* name : {key, "se.kovra.v5.KRAudienceUpdate", "se.kovra.v5.KRServiceURL"}) {
            map_.emplace(name, value);
        }
    }
    [[nodiscard]] std::optional<Value> find(const std::string& name) const {
        const std::shared_lock lock(mutex_);
        const auto found = map_.find(name);
        return found == map_.end() ? std::nullopt : std::optional<Value>(found->second);
    }

private:
    mutable std::shared_mutex mutex_;
    Map map_;
};

// Its time is that of one read of ours, from memory.
void readHit(benchmark::State& state) {
    const Value value = std::string(300, 'v');
    const Folder folder;
    const std::string name = key;
    const MapUnderMutex<std::map<std::string, Value>> tree(value);
    const MapUnderMutex<std::unordered_map<std::string, Value>> table(value);
    SqliteDefaults ours(folder.file("ours"), "bench", {});
    for (const char* each : {key, "se.kovra.v5.KRAudienceUpdate", "se.kovra.v5.KRServiceURL"}) {
        ours.setObjectForKey(value, each);
    }
    require(ours.synchronize() && ours.objectForKey(name) == value, "no value");
    constexpr int reads = 1000;
    const auto timed = [](const auto& read) {
        return secondsOf([&] {
                   for (int index = 0; index < reads; ++index) {
                       benchmark::DoNotOptimize(read());
                   }
               }) /
               reads;
    };
    std::vector<double> treeTimes;
    std::vector<double> tableTimes;
    std::vector<double> ourTimes;
    for ([[maybe_unused]] auto unused : state) {
        treeTimes.push_back(timed([&] { return tree.find(name); }));
        tableTimes.push_back(timed([&] { return table.find(name); }));
        ourTimes.push_back(timed([&] { return ours.objectForKey(name); }));
        state.SetIterationTime(ourTimes.back());
    }
    const double oursMedian = median(ourTimes);
    state.counters["ns"] = oursMedian * 1e9;
    state.counters["map_ns"] = median(treeTimes) * 1e9;
    state.counters["unordered_map_ns"] = median(tableTimes) * 1e9;
    state.counters["of_map"] = oursMedian / median(treeTimes);
    state.counters["of_unordered_map"] = oursMedian / median(tableTimes);
}
BENCHMARK(readHit)->UseManualTime()->Iterations(2000)->Unit(benchmark::kNanosecond);

// Its time is that of a read just after another has flushed under another key.
void readAfterAnotherFlushed(benchmark::State& state) {
    const Folder folder;
    SqliteDefaults ours(folder.file("ours"), "bench", {});
    SqliteDefaults theirs(folder.file("ours"), "bench", {});
    ours.setObjectForKey(answerOf(100'000), key);
    require(ours.synchronize(), "no flush");
    int round = 0;
    for ([[maybe_unused]] auto unused : state) {
        theirs.setObjectForKey(++round, "other");
        require(theirs.synchronize(), "no flush");
        state.SetIterationTime(
            secondsOf([&] { benchmark::DoNotOptimize(ours.objectForKey(key)); }));
    }
}
BENCHMARK(readAfterAnotherFlushed)->UseManualTime()->Iterations(500)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
