#include "SettingsFixture.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <sched.h>
#include <set>
#include <string_view>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {
std::atomic<bool> flushesFail = false;

// Run once before the next lock on a file is let go.
std::function<void()> beforeUnlocking;

int flushToDisk(long call, int descriptor) {
    if (flushesFail) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(syscall(call, descriptor));
}
} // namespace

// What the database calls to flush: these come before the C library's.
extern "C" __attribute__((visibility("default"))) int fsync(int descriptor) {
    return flushToDisk(SYS_fsync, descriptor);
}
extern "C" __attribute__((visibility("default"))) int fdatasync(int descriptor) {
    return flushToDisk(SYS_fdatasync, descriptor);
}
extern "C" __attribute__((visibility("default"))) int flock(int descriptor, int operation) {
    if (operation == LOCK_UN && beforeUnlocking) {
        std::exchange(beforeUnlocking, nullptr)();
    }
    return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

namespace morvellacinto::native {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class SqliteDefaultsTest : public SettingsFixture {
protected:
    static constexpr const char* lockName = "se.kovra.test%2F1.v1.lock";

    // Moves everything from the write-ahead log to the database file.
    void checkpoint() const {
        sqlite3* connection = nullptr;
        ASSERT_EQ(sqlite3_open(database().c_str(), &connection), SQLITE_OK);
        EXPECT_EQ(
            sqlite3_exec(connection, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr),
            SQLITE_OK);
        sqlite3_close(connection);
    }
    [[nodiscard]] std::filesystem::path log() const { return database().string() + "-wal"; }
    [[nodiscard]] std::filesystem::path logIndex() const { return database().string() + "-shm"; }
    [[nodiscard]] static std::string contentOf(const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static void write(const std::filesystem::path& file, std::string_view content) {
        std::ofstream(file, std::ios::binary) << content;
    }
    [[nodiscard]] static mode_t modeOf(const std::filesystem::path& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0;
    }
};

TEST_F(SqliteDefaultsTest, MakesItsFilesForThisUserAloneAndNotBeforeTheFirstUse) {
    const auto defaults = open();
    EXPECT_TRUE(defaults->synchronize()) << "with nothing to write";
    EXPECT_FALSE(std::filesystem::exists(directory().parent_path()));
    EXPECT_EQ(defaults->objectForKey("key"), std::nullopt);
    EXPECT_EQ(modeOf(directory().parent_path()), 0700U);
    EXPECT_EQ(modeOf(directory()), 0700U);
    for (const auto& file : std::filesystem::directory_iterator(directory())) {
        EXPECT_EQ(modeOf(file), 0600U) << file;
    }
    EXPECT_TRUE(std::filesystem::exists(database()));
}

TEST_F(SqliteDefaultsTest, KeepsWhatWasFlushedAndNothingElse) {
    {
        const auto defaults = open();
        defaults->setObjectForKey(Date{1.5}, "kept");
        defaults->setObjectForKey(1, "removed");
        EXPECT_TRUE(defaults->setAdapterValue("kept", "adapter's"));
        defaults->removeObjectForKey("removed");
        EXPECT_TRUE(defaults->synchronize());
        defaults->setObjectForKey(2, "dropped");
        EXPECT_EQ(defaults->objectForKey("dropped"), Value(2));
    }
    const auto defaults = open();
    EXPECT_EQ(defaults->objectForKey("kept"), Value(Date{1.5}));
    EXPECT_EQ(defaults->adapterValue("kept"), "adapter's");
    EXPECT_EQ(defaults->objectForKey("removed"), std::nullopt);
    EXPECT_EQ(defaults->objectForKey("dropped"), std::nullopt);
    EXPECT_EQ(defaults->adapterValue("dropped"), std::nullopt);
    EXPECT_EQ(defaults->contents(), Object({{"kept", Date{1.5}}}));
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SqliteDefaultsTest, APendingChangeHidesWhatOthersFlushAndWinsWhenFlushedLast) {
    const auto mine = open();
    const auto theirs = open();
    theirs->setObjectForKey("theirs", "changed");
    theirs->setObjectForKey("theirs", "removed");
    ASSERT_TRUE(theirs->synchronize());
    mine->setObjectForKey("mine", "changed");
    mine->removeObjectForKey("removed");
    theirs->setObjectForKey("theirs again", "changed");
    theirs->setObjectForKey("theirs again", "removed");
    theirs->setObjectForKey("theirs", "other");
    ASSERT_TRUE(theirs->synchronize());
    EXPECT_EQ(mine->objectForKey("changed"), Value("mine"));
    EXPECT_EQ(mine->objectForKey("removed"), std::nullopt);
    EXPECT_EQ(mine->objectForKey("other"), Value("theirs"));
    ASSERT_TRUE(mine->synchronize());
    EXPECT_EQ(theirs->objectForKey("changed"), Value("mine"));
    EXPECT_EQ(theirs->objectForKey("removed"), std::nullopt);
    EXPECT_EQ(theirs->objectForKey("other"), Value("theirs"));
}

TEST_F(SqliteDefaultsTest, AFlushThatIsOvertakenBeforeItReturnsHidesNothing) {
    const auto mine = open();
    const auto theirs = open();
    mine->setObjectForKey("first", "key");
    mine->setObjectForKey("first", "removed");
    ASSERT_TRUE(mine->synchronize());
    ASSERT_EQ(theirs->objectForKey("key"), Value("first"));
    mine->setObjectForKey("mine", "key");
    mine->removeObjectForKey("removed");
    beforeUnlocking = [&] {
        theirs->setObjectForKey("theirs", "key");
        theirs->setObjectForKey("theirs", "removed");
        EXPECT_TRUE(theirs->synchronize());
        EXPECT_EQ(mine->objectForKey("key"), Value("mine")) << "not flushed yet, for all it knows";
    };
    EXPECT_TRUE(mine->synchronize());
    EXPECT_EQ(mine->objectForKey("key"), Value("theirs"));
    EXPECT_EQ(mine->objectForKey("removed"), Value("theirs"));
}

TEST_F(SqliteDefaultsTest, SurvivesTheLossOfAnyFileWhileInUse) {
    const std::filesystem::path lock = directory() / lockName;
    const auto cut = [](const std::filesystem::path& file, std::uintmax_t size) {
        std::filesystem::resize_file(file, size);
    };
    struct Loss {
        const char* name;
        std::function<void()> happen;
        std::size_t told;
    };
    const Loss losses[] = {
        {"lock file cut", [&] { cut(lock, 0); }, 0},
        {"lock file deleted", [&] { std::filesystem::remove(lock); }, 0},
        {"database deleted", [&] { std::filesystem::remove(database()); }, 1},
        {"directory deleted", [&] { std::filesystem::remove_all(directory()); }, 1},
        {"database emptied", [&] { cut(database(), 0); }, 1},
        {"log deleted", [&] { std::filesystem::remove(log()); }, 1},
        {"log's index deleted", [&] { std::filesystem::remove(logIndex()); }, 1},
        {"log and its index deleted",
         [&] {
             std::filesystem::remove(log());
             std::filesystem::remove(logIndex());
         },
         1},
        {"log emptied", [&] { cut(log(), 0); }, 1},
        {"log cut", [&] { cut(log(), std::filesystem::file_size(log()) - 1); }, 1},
    };
    int round = 0;
    std::size_t toldBefore = 0;
    for (const Loss& loss : losses) {
        SCOPED_TRACE(loss.name);
        auto mine = open();
        auto theirs = open();
        mine->setObjectForKey(++round, "key");
        mine->setObjectForKey(round, "kept");
        ASSERT_TRUE(mine->synchronize());
        ASSERT_EQ(theirs->objectForKey("key"), Value(round));
        loss.happen();
        theirs->setObjectForKey(-round, "key");
        EXPECT_TRUE(theirs->synchronize());
        auto newcomer = open();
        EXPECT_EQ(newcomer->objectForKey("key"), Value(-round));
        newcomer->setObjectForKey(round, "new");
        EXPECT_TRUE(newcomer->synchronize());
        // What no signal reaches is looked for every 100 ms.
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (mine->objectForKey("new") != Value(round) &&
               std::chrono::steady_clock::now() < limit) {
        }
        for (auto* defaults : {&mine, &theirs, &newcomer}) {
            EXPECT_EQ((*defaults)->objectForKey("new"), Value(round));
            EXPECT_EQ((*defaults)->objectForKey("key"), Value(-round));
            EXPECT_EQ((*defaults)->objectForKey("kept"), Value(round));
            defaults->reset();
        }
        EXPECT_EQ(open()->contents(), Object({{"kept", round}, {"key", -round}, {"new", round}}));
        EXPECT_THAT(told(), SizeIs(toldBefore + loss.told));
        toldBefore = told().size();
    }
}

TEST_F(SqliteDefaultsTest, ADamagedLogIsSetAsideAndToldButNotACommitThatAKillHasCutOff) {
    constexpr std::size_t frame = 24 + 4096;
    constexpr int keys = 5;
    auto defaults = open();
    for (int key = 0; key < keys; ++key) {
        defaults->setObjectForKey(key, "key" + std::to_string(key));
        ASSERT_TRUE(defaults->synchronize());
    }
    defaults.reset();
    const std::string soundDatabase = contentOf(database());
    const std::string soundLog = contentOf(log());
    const std::size_t lastCommit = soundLog.size() - frame;
    const auto begin = [&](std::string_view content) {
        defaults.reset();
        std::filesystem::remove_all(directory());
        std::filesystem::create_directories(directory());
        write(database(), soundDatabase);
        write(log(), content);
        defaults = open();
    };
    const auto flushed = [&] {
        int found = 0;
        while (found < keys && defaults->objectForKey("key" + std::to_string(found)) == found) {
            ++found;
        }
        EXPECT_EQ(defaults->contents().size(), static_cast<std::size_t>(found));
        return found;
    };
    std::mt19937 random(3);
    for (std::size_t round = 0; round < 100; ++round) {
        const std::size_t offset = round < 56 ? round : random() % lastCommit;
        SCOPED_TRACE(offset);
        std::string damaged = soundLog;
        damaged[offset] ^= static_cast<char>(1U << (random() % 8));
        begin(damaged);
        EXPECT_LT(flushed(), keys);
        EXPECT_THAT(told(), SizeIs(round + 1));
        ASSERT_THAT(setAside(), SizeIs(1));
        EXPECT_EQ(contentOf(setAside().front().string() + "-wal"), damaged);
        defaults->setObjectForKey("new", "key0");
        EXPECT_TRUE(defaults->synchronize());
        EXPECT_EQ(open()->objectForKey("key0"), Value("new"));
    }
    const std::size_t toldBefore = told().size();
    begin(soundLog.substr(0, lastCommit + 24) + std::string(4096, '\0'));
    EXPECT_EQ(flushed(), keys - 1);
    begin(soundLog.substr(0, lastCommit + 24) + soundLog.substr(lastCommit - 4096, 4096) +
          soundLog.substr(frame));
    EXPECT_EQ(flushed(), keys - 1) << "with what is left of an earlier round behind it";
    for (int round = 0; round < 10; ++round) {
        begin(soundLog.substr(0, random() % soundLog.size()));
        EXPECT_LT(flushed(), keys);
        defaults->setObjectForKey("new", "key0");
        EXPECT_TRUE(defaults->synchronize());
        EXPECT_EQ(open()->objectForKey("key0"), Value("new"));
    }
    EXPECT_THAT(told(), SizeIs(toldBefore));
}

TEST_F(SqliteDefaultsTest, ADatabaseThatCannotBeOpenedToWriteForAWhileIsNotDamaged) {
    auto defaults = open();
    defaults->setObjectForKey("kept", "key");
    ASSERT_TRUE(defaults->synchronize());
    defaults.reset();
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    const auto noDescriptorToWrite = +[](const char* path, int flags, int mode) {
        if ((flags & O_ACCMODE) == O_RDWR && std::string_view(path).ends_with(".db")) {
            errno = EMFILE;
            return -1;
        }
        return ::open(path, flags, mode);
    };
    ASSERT_EQ(system->xSetSystemCall(system, "open",
                                     reinterpret_cast<sqlite3_syscall_ptr>(noDescriptorToWrite)),
              SQLITE_OK);
    defaults = open();
    EXPECT_EQ(defaults->objectForKey("key"), std::nullopt);
    defaults->setObjectForKey("new", "other");
    EXPECT_FALSE(defaults->synchronize());
    ASSERT_EQ(system->xSetSystemCall(system, "open", nullptr), SQLITE_OK);
    EXPECT_THAT(told(), ElementsAre(HasSubstr("could only be read")));
    EXPECT_THAT(setAside(), IsEmpty());
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(open()->objectForKey("key"), Value("kept"));
}

TEST_F(SqliteDefaultsTest, ClosingEndsTheWaitOfARead) {
    using std::chrono::steady_clock;
    auto defaults = open();
    defaults->setObjectForKey("flushed", "key");
    ASSERT_TRUE(defaults->synchronize());
    const int locked = ::open((directory() / lockName).c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(locked, LOCK_EX), 0);
    auto shortest = steady_clock::duration::max();
    for (int attempt = 0; attempt < 5; ++attempt) {
        defaults = open();
        std::thread reader([&] { EXPECT_EQ(defaults->objectForKey("key"), std::nullopt); });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto begun = steady_clock::now();
        defaults->close();
        shortest = std::min(shortest, steady_clock::now() - begun);
        reader.join();
    }
    EXPECT_LT(shortest, std::chrono::milliseconds(250));
    EXPECT_THAT(told(), IsEmpty());
    ::close(locked);
}

TEST_F(SqliteDefaultsTest, SetsADamagedDatabaseAsideAndBeginsANewOne) {
    const std::function<std::string(std::string)> damages[] = {
        [](const std::string& sound) { return std::string(sound.size(), 'g'); },
        [](const std::string& sound) { return sound.substr(0, sound.size() / 2); },
        [](const std::string& sound) { return sound.substr(0, 100); },
        // The layout's version; a format that forbids to be written.
        [](const std::string& sound) { return sound.substr(0, 63) + '\x02' + sound.substr(64); },
        [](const std::string& sound) { return sound.substr(0, 18) + '\x09' + sound.substr(19); },
    };
    std::size_t damaged = 0;
    for (const auto& damage : damages) {
        auto defaults = open();
        defaults->setObjectForKey(std::string(10'000, 'v'), "key");
        ASSERT_TRUE(defaults->synchronize());
        defaults.reset();
        checkpoint();
        write(database(), damage(contentOf(database())));
        const std::string content = contentOf(database());
        defaults = open();
        if (damaged % 2 == 0) {
            EXPECT_EQ(defaults->objectForKey("key"), std::nullopt);
        }
        defaults->setObjectForKey("new", "key");
        EXPECT_TRUE(defaults->synchronize());
        EXPECT_EQ(open()->objectForKey("key"), Value("new"));
        ++damaged;
        ASSERT_THAT(told(), SizeIs(damaged));
        EXPECT_THAT(told().back(), HasSubstr(databaseName));
        EXPECT_THAT(setAside(), SizeIs(std::min<std::size_t>(damaged, 3)));
        std::set<std::string> kept;
        for (const std::filesystem::path& file : setAside()) {
            kept.insert(contentOf(file));
        }
        EXPECT_TRUE(kept.contains(content)) << "the newest is kept as it was";
    }
}

TEST_F(SqliteDefaultsTest, DamageUnderAnOpenDatabaseCostsNoValueThatIsKnown) {
    const auto mine = open();
    const auto theirs = open();
    mine->setObjectForKey("first", "one");
    mine->setObjectForKey(2, "two");
    ASSERT_TRUE(mine->setAdapterValue("name", "text"));
    ASSERT_EQ(theirs->objectForKey("two"), Value(2));
    checkpoint();
    write(database(), std::string(std::filesystem::file_size(database()), 'g'));
    mine->setObjectForKey("changed", "one");
    EXPECT_TRUE(mine->synchronize());
    theirs->setObjectForKey(3, "three");
    EXPECT_TRUE(theirs->synchronize());
    EXPECT_THAT(setAside(), SizeIs(1));
    const auto newcomer = open();
    EXPECT_EQ(newcomer->objectForKey("one"), Value("changed"));
    EXPECT_EQ(newcomer->objectForKey("two"), Value(2));
    EXPECT_EQ(newcomer->objectForKey("three"), Value(3));
    EXPECT_EQ(newcomer->adapterValue("name"), "text");
}

TEST_F(SqliteDefaultsTest, AFlippedBitAnywhereGivesTheValueOrNothingAndNewValuesCanBeStored) {
    const Value value = Object{{"text", std::string(300, 'v')}, {"number", 1}};
    auto defaults = open();
    for (int key = 0; key < 20; ++key) {
        defaults->setObjectForKey(value, "key" + std::to_string(key));
    }
    defaults->setObjectForKey(std::string(20'000, 'l'), "long");
    ASSERT_TRUE(defaults->synchronize());
    defaults.reset();
    checkpoint();
    const std::string sound = contentOf(database());
    std::mt19937 random(7);
    for (unsigned round = 0; round < 250; ++round) {
        // The header and the layout's page byte by byte in the first rounds, then anything.
        const std::size_t offset = round < 110 ? round : random() % sound.size();
        std::string damaged = sound;
        damaged[offset] ^= static_cast<char>(1U << (random() % 8));
        std::filesystem::remove_all(directory());
        std::filesystem::create_directories(directory());
        write(database(), damaged);
        defaults = open();
        for (int key = 0; key < 20; ++key) {
            const auto read = defaults->objectForKey("key" + std::to_string(key));
            EXPECT_TRUE(!read || *read == value) << "byte " << offset;
        }
        const auto read = defaults->objectForKey("long");
        EXPECT_TRUE(!read || *read == Value(std::string(20'000, 'l'))) << "byte " << offset;
        defaults->setObjectForKey("new", "key3");
        defaults->setObjectForKey(std::string(30'000, 'n'), "long");
        ASSERT_TRUE(defaults->synchronize()) << "byte " << offset << ": " << told().back();
        defaults.reset();
        defaults = open();
        ASSERT_EQ(defaults->objectForKey("key3"), Value("new")) << "byte " << offset;
        ASSERT_EQ(defaults->objectForKey("long"), Value(std::string(30'000, 'n')));
        defaults.reset();
    }
}

TEST_F(SqliteDefaultsTest, ADamagedValueCountsAsAbsentAndIsToldOnce) {
    auto defaults = open();
    defaults->setObjectForKey(std::string(300, 'a'), "damaged");
    defaults->setObjectForKey(std::string(300, 'b'), "sound");
    ASSERT_TRUE(defaults->synchronize());
    defaults.reset();
    checkpoint();
    std::string content = contentOf(database());
    content[content.find("aaaa") + 100] = 'A';
    write(database(), content);
    defaults = open();
    const auto other = open();
    EXPECT_EQ(other->objectForKey("damaged"), std::nullopt);
    for (int read = 0; read < 3; ++read) {
        EXPECT_EQ(defaults->objectForKey("damaged"), std::nullopt);
        EXPECT_EQ(defaults->objectForKey("sound"), Value(std::string(300, 'b')));
        EXPECT_THAT(told(), SizeIs(2)) << "once by each";
        // Another's commit makes it read again.
        other->setObjectForKey(read, "other");
        ASSERT_TRUE(other->synchronize());
    }
    defaults->setObjectForKey("healed", "damaged");
    ASSERT_TRUE(defaults->synchronize());
    EXPECT_EQ(other->objectForKey("damaged"), Value("healed"));
}

TEST_F(SqliteDefaultsTest, AFailingFlushIsToldOnceLeavesTheValueReadableAndIsTriedAgain) {
    struct Trouble {
        const char* name;
        std::function<void()> begin;
        std::function<void()> end;
    };
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    std::signal(SIGXFSZ, SIG_IGN);
    const Trouble troubles[] = {
        {"a file in place of the directory",
         [this] {
             std::filesystem::remove_all(directory());
             write(directory(), "");
         },
         [this] { std::filesystem::remove(directory()); }},
        {"a directory without rights",
         [this] {
             ASSERT_EQ(chmod(directory().c_str(), 0), 0);
             ASSERT_TRUE(geteuid() != 0 || seteuid(65534) == 0) << "root has all rights";
         },
         [this] {
             ASSERT_EQ(seteuid(getuid()), 0);
             ASSERT_EQ(chmod(directory().c_str(), 0700), 0);
         }},
        {"a file that may not grow",
         [] {
             const rlimit small{64 * 1024, RLIM_INFINITY};
             ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
         },
         [&] { ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &unlimited), 0); }},
        {"a disk that cannot flush", [] { flushesFail = true; }, [] { flushesFail = false; }},
    };
    const bool canLoseRights = geteuid() != 0 || (seteuid(65534) == 0 && seteuid(0) == 0);
    const auto defaults = open();
    std::size_t toldBefore = 0;
    for (const Trouble& trouble : troubles) {
        SCOPED_TRACE(trouble.name);
        if (!canLoseRights && trouble.name == std::string_view("a directory without rights")) {
            std::cout << "left out, since this root cannot be anybody else: " << trouble.name
                      << '\n';
            continue;
        }
        defaults->setObjectForKey("before", "key");
        ASSERT_TRUE(defaults->synchronize());
        trouble.begin();
        const Value large = std::string(200'000, 'l') + trouble.name;
        defaults->setObjectForKey(large, "key");
        for (int attempt = 0; attempt < 3; ++attempt) {
            EXPECT_FALSE(defaults->synchronize());
            EXPECT_EQ(defaults->objectForKey("key"), large);
        }
        const std::vector<std::string> now = told();
        EXPECT_GT(now.size(), toldBefore);
        EXPECT_EQ(std::set<std::string>(now.begin(), now.end()).size(), now.size())
            << ::testing::PrintToString(now);
        toldBefore = now.size();
        trouble.end();
        EXPECT_TRUE(defaults->synchronize());
        EXPECT_EQ(open()->objectForKey("key"), large);
    }
}

TEST_F(SqliteDefaultsTest, ADiskThatIsFullOrReadOnlyCanStillBeRead) {
    std::filesystem::create_directories(directory());
    const std::string path = directory().string();
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", path.c_str(), "tmpfs", 0, "size=8m") != 0) {
        GTEST_SKIP() << "only root can mount a disk to try this with";
    }
    auto defaults = open();
    defaults->setObjectForKey("kept", "key");
    ASSERT_TRUE(defaults->synchronize());
    {
        std::ofstream filler(directory() / "filler");
        while (filler << std::string(4096, 'f') << std::flush) {
        }
    }
    const Value large = std::string(50'000, 'l');
    defaults->setObjectForKey(large, "large");
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_EQ(defaults->objectForKey("large"), large);
    EXPECT_EQ(open()->objectForKey("key"), Value("kept"));
    EXPECT_THAT(told(), ElementsAre(HasSubstr("full")));
    std::filesystem::remove(directory() / "filler");
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(open()->objectForKey("large"), large);
    defaults.reset();
    ASSERT_EQ(mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    defaults = open();
    EXPECT_EQ(defaults->objectForKey("key"), Value("kept"));
    EXPECT_THAT(told(), SizeIs(1)) << "nothing of the disk that can be read";
    defaults->setObjectForKey("new", "key");
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_EQ(defaults->objectForKey("key"), Value("new"));
    EXPECT_THAT(told(), ElementsAre(HasSubstr("full"), HasSubstr("Read-only")));
    ASSERT_EQ(mount(nullptr, path.c_str(), nullptr, MS_REMOUNT, nullptr), 0);
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(open()->objectForKey("key"), Value("new"));
    defaults.reset();
    EXPECT_EQ(umount2(path.c_str(), MNT_DETACH), 0);
}

TEST_F(SqliteDefaultsTest, WaitsForAWriterOfItsOwnFormatThatTakesLong) {
    const auto defaults = open();
    defaults->setObjectForKey(1, "key");
    ASSERT_TRUE(defaults->synchronize());
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(database().c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    defaults->setObjectForKey(2, "key");
    std::thread flusher([&] { EXPECT_TRUE(defaults->synchronize()); });
    EXPECT_EQ(defaults->objectForKey("key"), Value(2)) << "reads do not wait for the flush";
    ASSERT_EQ(sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    flusher.join();
    sqlite3_close(other);
}

TEST_F(SqliteDefaultsTest, ThreadsThatReadWriteAndFlushAtOnceLoseNothing) {
    const auto mine = open();
    const auto theirs = open();
    for (const auto* defaults : {mine.get(), theirs.get()}) {
        ASSERT_EQ(defaults->objectForKey("key0"), std::nullopt);
    }
    std::vector<std::thread> threads;
    constexpr int writers = 4;
    constexpr int rounds = 60;
    for (int writer = 0; writer < writers; ++writer) {
        SqliteDefaults& defaults = writer % 2 == 0 ? *mine : *theirs;
        threads.emplace_back([&defaults, writer] {
            const std::string key = "key" + std::to_string(writer);
            for (int round = 1; round <= rounds; ++round) {
                defaults.setObjectForKey(round, key);
                EXPECT_EQ(defaults.objectForKey(key), Value(round));
                EXPECT_TRUE(defaults.synchronize());
                EXPECT_EQ(defaults.objectForKey(key), Value(round));
                if (round % 3 == 0) {
                    defaults.removeObjectForKey(key);
                    EXPECT_EQ(defaults.objectForKey(key), std::nullopt);
                    EXPECT_TRUE(defaults.synchronize());
                    EXPECT_EQ(defaults.objectForKey(key), std::nullopt);
                }
            }
            defaults.setObjectForKey("last", key);
            EXPECT_TRUE(defaults.synchronize());
        });
    }
    std::atomic<bool> done = false;
    std::thread reader([&] {
        while (!done) {
            for (const auto* defaults : {mine.get(), theirs.get()}) {
                static_cast<void>(defaults->objectForKey("key0"));
                static_cast<void>(defaults->adapterValue("none"));
            }
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    done = true;
    reader.join();
    for (int writer = 0; writer < writers; ++writer) {
        const std::string key = "key" + std::to_string(writer);
        EXPECT_EQ(mine->objectForKey(key), Value("last"));
        EXPECT_EQ(theirs->objectForKey(key), Value("last"));
    }
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SqliteDefaultsTest, DiagnosticsMayUseTheDefaultsThemselves) {
    std::filesystem::create_directories(directory());
    write(database(), "garbage");
    std::unique_ptr<SqliteDefaults> defaults;
    std::optional<Value> read;
    defaults = std::make_unique<SqliteDefaults>(directory(), bundle, [&](std::string_view) {
        defaults->setObjectForKey(5, "from inside");
        EXPECT_TRUE(defaults->synchronize());
        read = defaults->objectForKey("from inside");
    });
    EXPECT_EQ(defaults->objectForKey("key"), std::nullopt);
    EXPECT_EQ(read, Value(5));
}

TEST_F(SqliteDefaultsTest, OnceClosedThereIsNothingToReadAndFlushesFail) {
    const auto defaults = open();
    defaults->setObjectForKey(1, "key");
    ASSERT_TRUE(defaults->synchronize());
    defaults->setObjectForKey(2, "pending");
    defaults->close();
    defaults->close();
    defaults->setObjectForKey(3, "late");
    defaults->removeObjectForKey("key");
    EXPECT_FALSE(defaults->synchronize());
    EXPECT_FALSE(defaults->setAdapterValue("name", "text"));
    EXPECT_EQ(defaults->objectForKey("key"), std::nullopt);
    const auto newcomer = open();
    EXPECT_EQ(newcomer->objectForKey("key"), Value(1));
    EXPECT_EQ(newcomer->objectForKey("pending"), std::nullopt);
}

TEST_F(SqliteDefaultsTest, AForkedChildThatExitsHarmsNothing) {
    auto defaults = open();
    defaults->setObjectForKey(1, "key");
    ASSERT_TRUE(defaults->synchronize());
    std::fflush(nullptr); // or the child would print it again
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        defaults.reset();
        std::exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    defaults->setObjectForKey(2, "key");
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(open()->objectForKey("key"), Value(2));
}

} // namespace
} // namespace morvellacinto::native
