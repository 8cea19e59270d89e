// SPDX-License-Identifier: MIT
#include "settings/SqliteDefaults.h"
#include "support/ProcessCounts.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <sys/file.h>
#include <sys/resource.h>
#include <sys/syscall.h>

namespace {
std::atomic<bool> flushesFail = false;
std::function<void()> duringFlush; // run once
} // namespace

// What the database calls to flush: this comes before the C library's.
extern "C" __attribute__((visibility("default"))) int fdatasync(int descriptor) {
    if (duringFlush) {
        std::exchange(duringFlush, nullptr)();
    }
    errno = EIO;
    return flushesFail ? -1 : static_cast<int>(syscall(SYS_fdatasync, descriptor));
}

namespace morvellacinto::native {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

struct SqliteDefaultsTest : ::testing::Test {
    [[nodiscard]] std::filesystem::path directory() const { return root_.path() / "data" / "app"; }
    [[nodiscard]] std::filesystem::path file(const char* suffix = "") const {
        return directory() / (std::string("se.kovra.test%2F1.v1.db") + suffix);
    }
    [[nodiscard]] std::unique_ptr<SqliteDefaults> open() {
        return std::make_unique<SqliteDefaults>(directory(), "se.kovra.test/1",
                                                [this](auto text) { told.emplace_back(text); });
    }
    static void flush(SqliteDefaults& defaults, std::string_view key, Value value) {
        defaults.setObjectForKey(std::move(value), key);
        ASSERT_TRUE(defaults.synchronize());
    }
    /// For what comes to be seen within 100 ms, on a machine of any speed.
    static bool soon(const std::function<bool()>& holds) {
        const auto limit = steady_clock::now() + 2s;
        while (!holds() && steady_clock::now() < limit) {
            std::this_thread::sleep_for(1ms);
        }
        return holds();
    }
    std::shared_ptr<sqlite3> run(const std::string& sql) const {
        sqlite3* connection = nullptr;
        EXPECT_EQ(sqlite3_open(file().c_str(), &connection), SQLITE_OK);
        std::shared_ptr<sqlite3> owned(connection, sqlite3_close);
        EXPECT_EQ(sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(connection);
        return owned;
    }
    void emptyTheLog() const { run("PRAGMA wal_checkpoint(TRUNCATE)"); }
    // As another process would have it. Closed, the descriptor ends the lock.
    [[nodiscard]] int lockDirectory() const {
        const int descriptor = ::open(directory().c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(flock(descriptor, LOCK_EX), 0);
        return descriptor;
    }

    std::vector<std::string> told;

    const testing::TemporaryDirectory root_;
};

TEST_F(SqliteDefaultsTest, KeepsWhatWasFlushedInFilesForThisUserAlone) {
    auto defaults = open();
    EXPECT_TRUE(defaults->synchronize()) << "with nothing to write";
    EXPECT_FALSE(std::filesystem::exists(directory())) << "nothing before the first use";
    flush(*defaults, "kept", Date{1.5});
    flush(*defaults, "removed", 1);
    defaults->setAdapterValue("kept", "adapter's");
    defaults->removeObjectForKey("removed");
    EXPECT_EQ(defaults->objectForKey("removed"), std::nullopt);
    EXPECT_TRUE(defaults->synchronize());
    defaults->setObjectForKey(2, "dropped");
    EXPECT_EQ(defaults->objectForKey("dropped"), Value(2));
    defaults = open();
    EXPECT_EQ(defaults->contents(), Object({{"kept", Date{1.5}}}));
    EXPECT_EQ(defaults->adapterValue("kept").text, "adapter's");
    EXPECT_EQ(defaults->adapterValue("dropped").text, std::nullopt);
    using std::filesystem::perms;
    for (const char* suffix : {"", "-wal", "-shm"}) {
        EXPECT_EQ(status(file(suffix)).permissions(), perms::owner_read | perms::owner_write);
    }
    EXPECT_EQ(status(directory()).permissions(), perms::owner_all);
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(SqliteDefaultsTest, ReadsADatabaseOfThisLayoutWhoeverMadeIt) {
    std::filesystem::create_directories(directory());
    run("PRAGMA journal_mode = WAL; PRAGMA application_id = 1297498929; PRAGMA user_version = 1;"
        "CREATE TABLE entry (space INTEGER NOT NULL, key BLOB NOT NULL, stamp INTEGER NOT NULL,"
        " sum INTEGER NOT NULL, value BLOB NOT NULL, PRIMARY KEY (space, key)) WITHOUT ROWID;"
        "INSERT INTO entry VALUES (0, CAST('key' AS BLOB), 7, 1380569712189885153, X'01030C');"
        "INSERT INTO entry VALUES (1, CAST('name' AS BLOB), -9, -6926765300437328497, "
        "X'01080174')");
    chmod(file().c_str(), 0600);
    EXPECT_EQ(open()->contents(), Object({{"key", 12}}));
    EXPECT_EQ(open()->adapterValue("name").text, "t");
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(SqliteDefaultsTest, SeesWhatOthersFlushUnlessAChangeOfItsOwnIsPending) {
    const auto mine = open();
    const auto theirs = open();
    flush(*theirs, "changed", "theirs");
    flush(*theirs, "removed", "theirs");
    mine->setObjectForKey("mine", "changed");
    mine->removeObjectForKey("removed");
    flush(*theirs, "changed", "theirs again");
    flush(*theirs, "removed", "theirs again");
    flush(*theirs, "other", "theirs");
    EXPECT_TRUE(soon([&] { return mine->objectForKey("other") == Value("theirs"); }));
    EXPECT_EQ(mine->objectForKey("changed"), Value("mine"));
    EXPECT_EQ(mine->objectForKey("removed"), std::nullopt);
    ASSERT_TRUE(mine->synchronize());
    EXPECT_TRUE(soon([&] { return theirs->objectForKey("removed") == std::nullopt; }));
    EXPECT_EQ(theirs->objectForKey("changed"), Value("mine"));
    flush(*theirs, "removed", "back");
    EXPECT_TRUE(soon([&] { return mine->objectForKey("removed") == Value("back"); }));
    theirs->removeObjectForKey("changed");
    ASSERT_TRUE(theirs->synchronize());
    EXPECT_TRUE(soon([&] { return mine->objectForKey("changed") == std::nullopt; }));
}

TEST_F(SqliteDefaultsTest, AValueThatWasChangedOrPutUnderAnotherKeyCountsAsAbsentAndIsTold) {
    const auto writer = open();
    for (const char* key : {"key", "value", "sound"}) {
        flush(*writer, key, std::string(300, 'a'));
    }
    run("UPDATE entry SET key = CAST('Key' AS BLOB) WHERE key = X'6B6579';"
        "UPDATE entry SET value = replace(value, 'aaa', 'aAa')"
        " WHERE key = CAST('value' AS BLOB)");
    const auto defaults = open();
    EXPECT_EQ(defaults->contents(), Object({{"sound", std::string(300, 'a')}}));
    EXPECT_THAT(told, ::testing::ElementsAre(HasSubstr("2 of the values")));
    flush(*defaults, "value", "healed");
    EXPECT_EQ(open()->objectForKey("value"), Value("healed"));
}

TEST_F(SqliteDefaultsTest, BeginsADamagedDatabaseAnewWithAllThatIsKnownAndKeepsTheOldFile) {
    const std::function<void()> losses[] = {
        [this] { root_.write(file(), std::string(std::filesystem::file_size(file()), 'g')); },
        [this] { root_.write(file(), ""); }, [this] { std::filesystem::remove(file()); },
        [this] { std::filesystem::remove_all(directory()); }};
    for (const auto& happen : losses) {
        SCOPED_TRACE(&happen - losses);
        const auto mine = open();
        const auto theirs = open();
        flush(*mine, "one", "first");
        flush(*mine, "two", 2);
        mine->setAdapterValue("name", "text");
        ASSERT_TRUE(mine->synchronize());
        ASSERT_TRUE(soon([&] { return theirs->adapterValue("name").text == "text"; }));
        const std::size_t before = told.size();
        root_.write(file(".draft"), "left behind by one who was killed");
        emptyTheLog();
        happen();
        flush(*mine, "one", "changed");
        flush(*theirs, "three", 3);
        EXPECT_THAT(told, SizeIs(before + 1)) << "by the first of them";
        EXPECT_THAT(told.back(), HasSubstr("known values"));
        EXPECT_TRUE(soon([&] { return mine->objectForKey("three") == Value(3); }));
        const auto newcomer = open();
        EXPECT_EQ(newcomer->contents(), Object({{"one", "changed"}, {"three", 3}, {"two", 2}}));
        EXPECT_EQ(newcomer->adapterValue("name").text, "text");
    }
    for (const std::string mark : {"user_version", "application_id"}) {
        run("PRAGMA " + mark + " = 9");
        EXPECT_EQ(open()->contents(), Object());
        EXPECT_THAT(told.back(), HasSubstr("is no settings database"));
    }
    root_.write(file(), "garbage that nobody knows of");
    EXPECT_EQ(open()->objectForKey("one"), std::nullopt);
    std::string kept;
    std::getline(std::ifstream(file(".damaged")), kept);
    EXPECT_TRUE(kept == "garbage that nobody knows of");
}

TEST_F(SqliteDefaultsTest, AFlushThatFailsIsToldOnceKeepsTheValuesAndIsMadeUpForByTheNext) {
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    const rlimit small{std::size_t{64} * 1024, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    const std::pair<std::function<void()>, std::function<void()>> troubles[] = {
        {[this] { std::filesystem::remove_all(directory()), root_.write(directory(), ""); },
         [this] { std::filesystem::remove(directory()); }},
        {[&] { setrlimit(RLIMIT_FSIZE, &small); }, [&] { setrlimit(RLIMIT_FSIZE, &unlimited); }},
        {[] { flushesFail = true; }, [] { flushesFail = false; }}};
    const auto defaults = open();
    const auto closed = testing::descriptorCount();
    for (const auto& [begin, end] : troubles) {
        SCOPED_TRACE(&begin - &troubles->first);
        flush(*defaults, "key", "before");
        const std::size_t before = told.size();
        begin();
        const Value large = std::string(200'000, 'l') + std::to_string(before);
        defaults->setObjectForKey(large, "key");
        for (int attempt = 0; attempt < 3; ++attempt) {
            EXPECT_FALSE(defaults->synchronize());
            EXPECT_EQ(testing::descriptorCount(), closed) << "nothing is known of the files";
            EXPECT_EQ(defaults->objectForKey("key"), large);
        }
        EXPECT_THAT(told, SizeIs(before + 1));
        end();
        EXPECT_TRUE(defaults->synchronize());
        EXPECT_EQ(open()->objectForKey("key"), large);
    }
    flushesFail = true;
    defaults->setObjectForKey(1, "se.kovra.v5.key");
    EXPECT_FALSE(defaults->erase());
    EXPECT_EQ(defaults->objectForKey("se.kovra.v5.key"), std::nullopt);
    flushesFail = false;
}

TEST_F(SqliteDefaultsTest, AChangeThatIsMadeDuringAFlushRemainsPendingAndNoProgramInheritsTheLock) {
    const auto defaults = open();
    flush(*defaults, "key", 0);
    duringFlush = [&] {
        defaults->setObjectForKey(2, "key");
        for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
            if (read_symlink(each.path()).string().starts_with(root_.path().string())) {
                EXPECT_EQ(fcntl(std::stoi(each.path().filename()), F_GETFD), FD_CLOEXEC);
            }
        }
    };
    flush(*defaults, "key", 1);
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_EQ(open()->objectForKey("key"), Value(2));
}

TEST_F(SqliteDefaultsTest, AReadThatFailsIsNoAbsenceAndARemovalMeanwhileHolds) {
    flush(*open(), "key", 1);
    const auto defaults = open();
    int locked = lockDirectory();
    const auto begun = steady_clock::now();
    EXPECT_FALSE(defaults->adapterValue("name").isCertain);
    EXPECT_LT(steady_clock::now() - begun, 4s);
    defaults->removeObjectForKey("key");
    ::close(locked);
    EXPECT_TRUE(defaults->synchronize());
    EXPECT_TRUE(defaults->adapterValue("name").isCertain);
    flush(*open(), "other", 1);
    locked = lockDirectory();
    EXPECT_TRUE(soon([&] { return !defaults->adapterValue("name").isCertain; })) << "again";
    ::close(locked);
    EXPECT_EQ(open()->objectForKey("key"), std::nullopt);
    EXPECT_THAT(told, ::testing::ElementsAre(HasSubstr("locked")));
}

TEST_F(SqliteDefaultsTest, ClosingEndsTheWaitsOfFlushesAndReads) {
    flush(*open(), "key", 1);
    const auto writing = run("BEGIN IMMEDIATE");
    for (const bool isRead : {false, true}) {
        const auto defaults = open();
        const int locked = isRead ? lockDirectory() : -1;
        std::atomic<bool> isDone = false;
        defaults->setObjectForKey(2, "key");
        std::thread waiting([&] {
            EXPECT_EQ(isRead ? defaults->objectForKey("none").has_value() : defaults->synchronize(),
                      false);
            isDone = true;
        });
        std::this_thread::sleep_for(120ms); // by when a read looks at the database
        auto begun = steady_clock::now();
        EXPECT_TRUE(isRead || defaults->objectForKey("key") == Value(2));
        EXPECT_LT(steady_clock::now() - begun, 250ms) << "a read does not stand behind a flush";
        EXPECT_FALSE(isDone);
        begun = steady_clock::now();
        defaults->close();
        EXPECT_LT(steady_clock::now() - begun, 250ms);
        waiting.join();
        ::close(locked);
        EXPECT_FALSE(defaults->synchronize());
        EXPECT_FALSE(defaults->adapterValue("name").isCertain);
    }
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(SqliteDefaultsTest, RefusesFilesThatOthersCouldHaveAHandIn) {
    const std::function<void(const char*)> makes[] = {
        [](const char* path) { mkfifo(path, 0600); },
        [this](const char* path) {
            root_.write(root_.path() / "other", ""),
                symlink((root_.path() / "other").c_str(), path);
        },
        [this](const char* path) { root_.write(path, ""), chmod(path, 0620); },
        [this](const char* path) { // only root gives files away
            root_.write(path, ""), chmod(path, chown(path, 12345, getgid()) == 0 ? 0600 : 0602);
        }};
    std::size_t refused = 0;
    for (const auto& make : makes) {
        for (const char* suffix : {"", "-wal", "-shm"}) {
            SCOPED_TRACE(suffix);
            std::filesystem::remove_all(directory());
            flush(*open(), "key", 1);
            std::filesystem::remove(file(suffix));
            make(file(suffix).c_str());
            const auto defaults = open();
            EXPECT_EQ(defaults->objectForKey("key"), std::nullopt);
            defaults->setObjectForKey(2, "key");
            EXPECT_FALSE(defaults->synchronize());
            EXPECT_EQ(defaults->objectForKey("key"), Value(2)) << "memory serves";
            ASSERT_THAT(told, SizeIs(++refused));
            EXPECT_THAT(told.back(), HasSubstr(file(suffix).string() + " is not used"));
        }
    }
}

TEST_F(SqliteDefaultsTest, DiagnosticsMayUseTheDefaultsAndLetGoOfThem) {
    flush(*open(), "key", "known");
    emptyTheLog();
    root_.write(file(), "garbage");
    std::unique_ptr<SqliteDefaults> defaults;
    const auto use = [&](std::string_view) {
        flush(*defaults, "from inside", 1);
        defaults.reset();
    };
    defaults = std::make_unique<SqliteDefaults>(directory(), "se.kovra.test/1", use);
    EXPECT_EQ(defaults->objectForKey("other"), std::nullopt);
    EXPECT_EQ(open()->objectForKey("from inside"), Value(1));
}

} // namespace morvellacinto::native
