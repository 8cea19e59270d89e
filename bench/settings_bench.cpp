// SPDX-License-Identifier: MIT
// Storing and reading one setting.

#include "Comparison.h"
#include "Peers.h"

#include "settings/SqliteDefaults.h"
#include "settings/ValueBlob.h"

#include <lmdb.h>

#include <array>
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <thread>
#include <unistd.h>

namespace morvellacinto::bench {
namespace {

using native::SqliteDefaults;

constexpr const char* key = "se.kovra.v5.KRAudiences";

/// A service's answer of about `bytes` bytes: tags of a few dozen bytes each.
Value answerOf(std::size_t bytes, const std::string& word) {
    Array tags;
    for (std::size_t size = 60; size < bytes; size += 45) {
        tags.append(word + std::to_string(size) + "-abcdefghijklmnopqrstuvwxyz");
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
    void store(std::string blob) {
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

/// Values of this process alone, which another one of `folder` may change.
std::shared_ptr<SqliteDefaults> defaultsIn(const Folder& folder) {
    return std::make_shared<SqliteDefaults>(folder.file("ours"), "bench", native::Diagnostics());
}

// One commit each, so that the disk is asked for the same; the bytes are the same too, and other
// ones each time.
void compareStores(const std::string& row, std::size_t bytes) {
    const auto folder = std::make_shared<Folder>();
    const auto floor = std::make_shared<RawFile>(folder->file("floor"));
    const auto sqlite = std::make_shared<BareSqlite>(folder->file("sqlite"));
    const auto lmdb = std::make_shared<Lmdb>(folder->file("lmdb"));
    const auto ours = defaultsIn(*folder);
    // SQLite writes no page again that has not changed: the two differ in all of theirs.
    const std::array values{answerOf(bytes, "segment-"), answerOf(bytes, "sampled-")};
    const std::array blobs{native::encodeValue(values[0]), native::encodeValue(values[1])};
    const auto once = [folder](std::string name, std::function<void()> work,
                               std::optional<double> aim = std::nullopt) {
        return Contender{std::move(name), [folder, work] { return secondsOf(work); }, aim};
    };
    compare(row, {once("ours",
                       [=, turn = 0U]() mutable {
                           ours->setObjectForKey(values[++turn % 2], key);
                           require(ours->synchronize(), "no flush");
                       }),
                  once("floor: write of 4 KB, fdatasync", [=] { floor->store(); }),
                  once(
                      "bare SQLite",
                      [=, turn = 0U]() mutable { sqlite->store(key, blobs[++turn % 2]); }, 1.1),
                  once("LMDB", [=, turn = 0U]() mutable { lmdb->store(blobs[++turn % 2]); })});
}

void compareReads() {
    const auto folder = std::make_shared<Folder>();
    const auto map = std::make_shared<MapUnderMutex>();
    const auto ours = defaultsIn(*folder);
    const auto theirs = defaultsIn(*folder);
    for (const char* each : {key, "se.kovra.v5.KRAudienceUpdate", "se.kovra.v5.KRServiceURL"}) {
        map->set(each, std::string(300, 'v'));
        ours->setObjectForKey(std::string(300, 'v'), each);
    }
    require(ours->synchronize() && ours->objectForKey(key).has_value(), "no value");
    const std::string name = key;
    compare("read from memory",
            {repeated("ours", [=] { return ours->objectForKey(name); }),
             repeated(
                 "map under a shared mutex", [=] { return map->find(name); }, 2)});

    const auto afterFlush = [=](const auto& read) {
        return [=, round = std::make_shared<int>(0), folder] {
            theirs->setObjectForKey(++*round, "other");
            require(theirs->synchronize(), "no flush");
            std::this_thread::sleep_for(
                std::chrono::milliseconds(101)); // by when reads look for it
            return secondsOf([&] { read(*round); });
        };
    };
    const auto see = [=](int round) {
        require(ours->objectForKey("other") == Value(round), "another's write was not seen");
    };
    compare("read that takes over what another store has flushed",
            {{"ours", afterFlush(see)}, {"map under a shared mutex", afterFlush([=](int) {
                                             require(map->find(name).has_value(), "no value");
                                         })}});
}

} // namespace
} // namespace morvellacinto::bench

int main(int count, char** arguments) {
    using namespace morvellacinto::bench;
    compareStores("store and flush 300 B", 300);
    compareStores("store and flush 100 KB", 100'000);
    compareReads();
    return runComparisons(count, arguments);
}
