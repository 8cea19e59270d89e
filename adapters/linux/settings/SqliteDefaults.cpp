#include "SqliteDefaults.h"

#include "ChangeSignal.h"
#include "FileLock.h"
#include "SettingsDatabase.h"
#include "SettingsFiles.h"
#include "ValueBlob.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <ctime>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <system_error>
#include <unistd.h>
#include <unordered_map>
#include <utility>
#include <vector>

namespace morvellacinto::native {

namespace {

using Milliseconds = std::chrono::milliseconds;

// How often a read looks for what no signal tells: changes by processes that have no memory in
// common with this one, and files that were deleted or replaced.
constexpr Milliseconds lookInterval(100);
constexpr Milliseconds retryInterval(1000);
constexpr Milliseconds flushPatience(5000);
constexpr Milliseconds readPatience(500);
constexpr Milliseconds alonePatience(10);

// The kernel's tick, a few milliseconds wide, at a quarter of the price of the exact time.
Milliseconds coarseNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds(now.tv_sec) +
           std::chrono::duration_cast<Milliseconds>(std::chrono::nanoseconds(now.tv_nsec));
}

struct KeyHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view key) const noexcept {
        return std::hash<std::string_view>()(key);
    }
};

struct Entry {
    std::optional<Value> value;              // nothing: removed but not flushed, or damaged
    std::shared_ptr<const std::string> blob; // what to flush; null removes
    std::uint64_t change = 0;                // the change that waits for a flush; 0: none
    std::int64_t stamp = 0;                  // of the row that was read or written; 0: no row
    std::uint64_t listing = 0;               // in which the row was last seen
};

using Entries = std::unordered_map<std::string, Entry, KeyHash, std::equal_to<>>;

// Sentences gathered under locks, told after.
using Report = std::vector<std::string>;

// Tells a failure that lasts once, also when reading and writing fail for the same reason.
class Failures {
public:
    enum Of { reading, writing };

    void happened(Of which, const std::string& sentence, Report& report) {
        const std::lock_guard lock(mutex_);
        if (std::find(last_.begin(), last_.end(), sentence) == last_.end()) {
            report.push_back(sentence);
        }
        last_[which] = sentence;
    }
    void ended(Of which) {
        const std::lock_guard lock(mutex_);
        last_[which].clear();
    }

private:
    std::mutex mutex_;
    std::array<std::string, 2> last_;
};

} // namespace

// Locks are taken in the order of their declaration.
struct SqliteDefaults::State {
    State(std::filesystem::path directory, const std::string& bundle, Diagnostics sink)
        : files(std::move(directory), bundle), diagnostics(std::move(sink)) {}

    [[nodiscard]] std::optional<Value> value(Space space, std::string_view key);
    [[nodiscard]] Object contents(Space space);
    void set(Space space, std::string_view key, Value value);
    void remove(Space space, std::string_view key);
    [[nodiscard]] bool synchronize();
    void close();

    const SettingsFiles files;
    const Diagnostics diagnostics;
    const pid_t process = getpid();

private:
    struct Pending {
        std::vector<SettingsDatabase::Change> changes;
        std::vector<std::uint64_t> numbers; // Entry::change of each
    };
    using Connection = std::unique_ptr<SettingsDatabase>;

    [[nodiscard]] bool isCurrent() const;
    [[nodiscard]] Entries& entriesOf(Space space) {
        return entries[static_cast<std::size_t>(space)];
    }
    void tell(const Report& report) const;

    void look(Report& report);
    void readChanges(Report& report);
    void readRows(SettingsDatabase& from, std::vector<SettingsDatabase::Row>& rows) const;
    bool apply(std::vector<SettingsDatabase::Row>& rows, std::uint64_t since, bool complete,
               Report& report);

    [[nodiscard]] bool flush(Report& report);
    [[nodiscard]] Pending pendingChanges() const;
    void committed(const Pending& pending, std::int64_t stamp);

    [[nodiscard]] FileLock lockFiles(FileLock::Kind kind, Milliseconds patience) const;
    [[nodiscard]] FileLock open(Connection& connection, Milliseconds patience, Report& report);
    [[nodiscard]] bool isOpen(Connection& connection, const FileLock& lock);
    void make(Connection& connection, const FileLock& lock, Report& report);
    void replaceDamaged(Connection& connection, const DamageError& damage, Milliseconds patience,
                        Report& report);
    void beginAnew(Connection& connection, const char* reason, Report& report);
    void useSignal(std::shared_ptr<ChangeSignal> found);
    [[nodiscard]] std::vector<SettingsDatabase::Change> knownValues() const;
    [[nodiscard]] std::shared_ptr<ChangeSignal> currentSignal() const;

    Failures failures;
    std::atomic<bool> noSignal = false; // the system offers none

    std::mutex writing;
    Connection writer;

    std::mutex reading;
    Connection reader;
    std::int64_t readVersion = 0;

    // Guards everything below.
    mutable std::shared_mutex memory;
    std::array<Entries, 2> entries;
    std::shared_ptr<ChangeSignal> signal; // null when the system has none
    std::uint64_t seen = 0;               // the signal's value that memory is no older than
    Milliseconds nextLook{0};
    bool cannotRead = false;
    bool closed = false;
    std::uint64_t changes = 0;  // made here so far
    std::uint64_t commits = 0;  // likewise
    std::uint64_t listings = 0; // read so far
};

std::optional<Value> SqliteDefaults::State::value(Space space, std::string_view key) {
    const auto find = [&]() -> std::optional<Value> {
        const Entries& all = entriesOf(space);
        const auto entry = all.find(key);
        return entry == all.end() ? std::nullopt : entry->second.value;
    };
    {
        const std::shared_lock lock(memory);
        if (isCurrent()) {
            return find();
        }
    }
    Report report;
    look(report);
    std::optional<Value> found;
    {
        const std::shared_lock lock(memory);
        found = find();
    }
    tell(report);
    return found;
}

Object SqliteDefaults::State::contents(Space space) {
    static_cast<void>(value(space, {})); // brings memory up to date
    std::map<std::string_view, Value> sorted;
    const std::shared_lock lock(memory);
    for (const auto& [key, entry] : entriesOf(space)) {
        if (entry.value) {
            sorted.emplace(key, *entry.value);
        }
    }
    Object all;
    for (const auto& [key, found] : sorted) {
        all.set(key, found);
    }
    return all;
}

void SqliteDefaults::State::set(Space space, std::string_view key, Value value) {
    auto blob = std::make_shared<const std::string>(encodeValue(value));
    // Leaves with the earlier value, which may take long to free.
    std::optional<Value> stored(std::move(value));
    const std::unique_lock lock(memory);
    if (closed) {
        return;
    }
    Entry& entry = entriesOf(space).try_emplace(std::string(key)).first->second;
    entry.value.swap(stored);
    entry.blob = std::move(blob);
    entry.change = ++changes;
}

void SqliteDefaults::State::remove(Space space, std::string_view key) {
    static_cast<void>(value(space, key)); // sees to it that memory is current
    std::optional<Value> removed;
    const std::unique_lock lock(memory);
    Entries& all = entriesOf(space);
    auto entry = all.find(key);
    if (entry == all.end() && cannotRead && !closed) {
        entry = all.try_emplace(std::string(key)).first; // for all we know there is one on disk
    } else if (entry == all.end() || !entry->second.value) {
        return;
    }
    entry->second.value.swap(removed);
    entry->second.blob.reset();
    entry->second.change = ++changes;
}

bool SqliteDefaults::State::synchronize() {
    Report report;
    bool flushed = false;
    {
        const std::lock_guard lock(writing);
        flushed = flush(report);
    }
    tell(report);
    return flushed;
}

void SqliteDefaults::State::close() {
    std::array<Entries, 2> dropped;
    const std::lock_guard noWriting(writing);
    const std::lock_guard noReading(reading);
    const std::unique_lock lock(memory);
    closed = true;
    dropped.swap(entries);
    signal.reset();
    reader.reset();
    writer.reset();
}

// The lock on memory is held, shared at least.
bool SqliteDefaults::State::isCurrent() const {
    if (closed) {
        return true;
    }
    if (coarseNow() >= nextLook) {
        return false;
    }
    return cannotRead || (signal != nullptr && signal->value() == seen);
}

void SqliteDefaults::State::tell(const Report& report) const {
    if (diagnostics) {
        for (const std::string& sentence : report) {
            diagnostics(sentence);
        }
    }
}

// Brings memory up to date; when that fails it stays as it is.
void SqliteDefaults::State::look(Report& report) {
    const std::lock_guard lock(reading);
    {
        const std::shared_lock alreadyDone(memory);
        if (isCurrent()) {
            return;
        }
    }
    bool failed = false;
    try {
        readChanges(report);
        failures.ended(Failures::reading);
    } catch (const std::exception& error) {
        reader.reset();
        failures.happened(Failures::reading, error.what(), report);
        failed = true;
    }
    const std::unique_lock done(memory);
    cannotRead = failed;
    nextLook = coarseNow() + (failed ? retryInterval : lookInterval);
}

void SqliteDefaults::State::readChanges(Report& report) {
    const std::shared_ptr<ChangeSignal> known = currentSignal();
    if (reader == nullptr || reader->wasMoved() ||
        (known != nullptr && !known->isNamedIn(files.lock()))) {
        static_cast<void>(open(reader, readPatience, report));
        readVersion = -1;
    }
    bool damagedBefore = false;
    for (bool applied = false; !applied;) {
        std::uint64_t since = 0;
        std::uint64_t raised = 0;
        {
            const std::shared_lock lock(memory);
            since = commits;
            raised = signal == nullptr ? 0 : signal->value();
        }
        std::vector<SettingsDatabase::Row> rows;
        try {
            const std::int64_t version = reader->version();
            if (version == readVersion) {
                applied = true;
            } else {
                readRows(*reader, rows);
                applied = apply(rows, since, true, report);
                if (applied) {
                    readVersion = version;
                }
            }
        } catch (const DamageError& damage) {
            if (std::exchange(damagedBefore, true)) {
                throw;
            }
            replaceDamaged(reader, damage, readPatience, report);
            readVersion = -1;
        }
        if (applied) {
            const std::unique_lock lock(memory);
            seen = raised;
        }
    }
}

void SqliteDefaults::State::readRows(SettingsDatabase& from,
                                     std::vector<SettingsDatabase::Row>& rows) const {
    from.read(
        [this](Space space, std::string_view key) {
            const Entries& all = entries[static_cast<std::size_t>(space)];
            const std::shared_lock lock(memory);
            const auto entry = all.find(key);
            return entry == all.end() ? 0 : entry->second.stamp;
        },
        rows);
}

// Takes over what was read. False, and nothing done, when this process has committed since the
// rows' moment: they may be older than what memory holds.
bool SqliteDefaults::State::apply(std::vector<SettingsDatabase::Row>& rows, std::uint64_t since,
                                  bool complete, Report& report) {
    const std::unique_lock lock(memory);
    if (commits != since) {
        return false;
    }
    ++listings;
    for (SettingsDatabase::Row& row : rows) {
        Entry& entry = entriesOf(row.space).try_emplace(std::move(row.key)).first->second;
        entry.listing = listings;
        if (!row.loaded) {
            continue;
        }
        entry.stamp = row.stamp;
        if (!row.value) {
            report.push_back("a value in " + files.database().string() +
                             " is damaged and counts as absent");
        }
        if (entry.change == 0) {
            entry.value.swap(row.value); // freed with the rows
        }
    }
    if (complete) {
        for (Entries& all : entries) {
            for (auto entry = all.begin(); entry != all.end();) {
                const bool gone = entry->second.listing != listings;
                if (gone && entry->second.change == 0) {
                    entry = all.erase(entry);
                    continue;
                }
                if (gone) {
                    entry->second.stamp = 0;
                }
                ++entry;
            }
        }
    }
    return true;
}

bool SqliteDefaults::State::flush(Report& report) {
    {
        const std::shared_lock lock(memory);
        if (closed) {
            return false;
        }
    }
    const Pending pending = pendingChanges();
    if (pending.changes.empty()) {
        return true;
    }
    const auto write = [&] {
        const FileLock lock = open(writer, flushPatience, report);
        return writer->write(pending.changes);
    };
    try {
        std::int64_t stamp = 0;
        try {
            stamp = write();
        } catch (const DamageError& damage) {
            replaceDamaged(writer, damage, flushPatience, report);
            stamp = write();
        }
        committed(pending, stamp);
        failures.ended(Failures::writing);
        return true;
    } catch (const std::exception& error) {
        // After a failed flush to disk nothing is known of the connection's files: open them anew.
        writer.reset();
        failures.happened(Failures::writing, error.what(), report);
        return false;
    }
}

SqliteDefaults::State::Pending SqliteDefaults::State::pendingChanges() const {
    Pending pending;
    const std::shared_lock lock(memory);
    for (const Space space : {Space::settings, Space::adapter}) {
        for (const auto& [key, entry] : entries[static_cast<std::size_t>(space)]) {
            if (entry.change != 0) {
                pending.changes.push_back({space, key, entry.blob});
                pending.numbers.push_back(entry.change);
            }
        }
    }
    return pending;
}

void SqliteDefaults::State::committed(const Pending& pending, std::int64_t stamp) {
    const std::unique_lock lock(memory);
    ++commits;
    for (std::size_t index = 0; index < pending.changes.size(); ++index) {
        const SettingsDatabase::Change& change = pending.changes[index];
        Entries& all = entriesOf(change.space);
        const auto entry = all.find(change.key);
        if (entry == all.end()) {
            continue;
        }
        entry->second.stamp = change.blob == nullptr ? 0 : stamp;
        if (entry->second.change != pending.numbers[index]) {
            continue; // changed again meanwhile
        }
        entry->second.change = 0;
        entry->second.blob.reset();
        if (!entry->second.value) {
            all.erase(entry);
        }
    }
    if (signal != nullptr) {
        const std::uint64_t before = signal->raise();
        if (before == seen) {
            seen = before + 1; // nobody else has committed: memory is up to date
        }
    }
}

FileLock SqliteDefaults::State::lockFiles(FileLock::Kind kind, Milliseconds patience) const {
    try {
        return FileLock(files.lock(), kind, patience);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::no_such_file_or_directory) {
            throw;
        }
    }
    files.createDirectory();
    return FileLock(files.lock(), kind, patience);
}

// Connects to the database that bears the name now, and to the signal that newcomers find. While
// the lock that it returns is held, the database is not replaced.
FileLock SqliteDefaults::State::open(Connection& connection, Milliseconds patience,
                                     Report& report) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (int made = 0; made < 4;) {
        {
            FileLock lock = lockFiles(FileLock::Kind::shared, patience);
            if (isOpen(connection, lock)) {
                return lock;
            }
        }
        // While this waits to be alone, others may make what is missing.
        try {
            make(connection, lockFiles(FileLock::Kind::exclusive, alonePatience), report);
            ++made;
        } catch (const std::system_error& error) {
            if (error.code() != std::errc::timed_out ||
                std::chrono::steady_clock::now() >= deadline) {
                throw;
            }
        }
    }
    throw std::runtime_error("the settings in " + files.database().string() +
                             " are replaced time and again");
}

// Whether everything that the connection needs is there.
bool SqliteDefaults::State::isOpen(Connection& connection, const FileLock& lock) {
    const std::shared_ptr<ChangeSignal> known = currentSignal();
    if (known == nullptr || !known->isNamedIn(lock)) {
        std::shared_ptr<ChangeSignal> found = ChangeSignal::find(lock);
        if (found == nullptr && !noSignal) {
            return false;
        }
        useSignal(std::move(found));
    }
    if (connection != nullptr && !connection->wasMoved()) {
        return true;
    }
    connection.reset();
    if (!std::filesystem::exists(files.database())) {
        return false;
    }
    try {
        connection = std::make_unique<SettingsDatabase>(files.database(),
                                                        SettingsDatabase::Layout::mustBeThere);
    } catch (const DamageError&) {
        return false; // met again when nobody else is about
    }
    return true;
}

// With the lock to itself, makes whatever the connection needs.
void SqliteDefaults::State::make(Connection& connection, const FileLock& lock, Report& report) {
    std::shared_ptr<ChangeSignal> signalOfAll = ChangeSignal::findOrMake(lock);
    noSignal = signalOfAll == nullptr;
    const std::shared_ptr<ChangeSignal> known = currentSignal();
    if (known == nullptr || !known->isNamedIn(lock)) {
        useSignal(std::move(signalOfAll));
    }
    connection.reset();
    files.createDatabase();
    try {
        connection = std::make_unique<SettingsDatabase>(files.database(),
                                                        SettingsDatabase::Layout::mayBeMade);
    } catch (const DamageError& damage) {
        beginAnew(connection, damage.what(), report);
    }
}

// For a connection that has met damage, unless others have replaced its database already.
void SqliteDefaults::State::replaceDamaged(Connection& connection, const DamageError& damage,
                                           Milliseconds patience, Report& report) {
    const FileLock lock = lockFiles(FileLock::Kind::exclusive, patience);
    if (connection != nullptr && !connection->wasMoved()) {
        beginAnew(connection, damage.what(), report);
    }
}

// Puts a new database in the place of a damaged one, with the values that memory still has or that
// can still be read.
void SqliteDefaults::State::beginAnew(Connection& connection, const char* reason, Report& report) {
    if (connection != nullptr) {
        std::vector<SettingsDatabase::Row> rows;
        try {
            readRows(*connection, rows);
        } catch (const std::runtime_error&) {
            // Rows has what could be read.
        }
        const std::uint64_t now = [this] {
            const std::shared_lock lock(memory);
            return commits;
        }();
        // With the files locked nobody commits, so no row is older than memory.
        apply(rows, now, false, report);
        connection.reset();
    }
    const std::filesystem::path aside = files.setAside();
    files.createDatabase();
    connection =
        std::make_unique<SettingsDatabase>(files.database(), SettingsDatabase::Layout::mayBeMade);
    const std::vector<SettingsDatabase::Change> known = knownValues();
    connection->write(known);
    report.push_back("the settings database was damaged and is now " + aside.string() +
                     "; a new one was begun with the " + std::to_string(known.size()) +
                     " values still known (" + reason + ")");
    if (const std::shared_ptr<ChangeSignal> all = currentSignal()) {
        all->raise();
    }
}

std::vector<SettingsDatabase::Change> SqliteDefaults::State::knownValues() const {
    std::vector<SettingsDatabase::Change> known;
    const std::shared_lock lock(memory);
    for (const Space space : {Space::settings, Space::adapter}) {
        for (const auto& [key, entry] : entries[static_cast<std::size_t>(space)]) {
            if (entry.value) {
                known.push_back(
                    {space, key, std::make_shared<const std::string>(encodeValue(*entry.value))});
            }
        }
    }
    return known;
}

void SqliteDefaults::State::useSignal(std::shared_ptr<ChangeSignal> found) {
    const std::unique_lock lock(memory);
    signal.swap(found); // the earlier one is let go of without the lock
    nextLook = Milliseconds(0);
}

std::shared_ptr<ChangeSignal> SqliteDefaults::State::currentSignal() const {
    const std::shared_lock lock(memory);
    return signal;
}

SqliteDefaults::SqliteDefaults(std::filesystem::path directory, std::string bundle,
                               Diagnostics diagnostics)
    : state_(std::make_shared<State>(std::move(directory), bundle, std::move(diagnostics))) {}

SqliteDefaults::~SqliteDefaults() {
    if (getpid() != state_->process) {
        // Closing a connection that was made before fork() would harm the parent's.
        static_cast<void>(new std::shared_ptr<State>(state_));
        return;
    }
    close();
}

std::optional<Value> SqliteDefaults::objectForKey(std::string_view key) const {
    return state_->value(Space::settings, key);
}

void SqliteDefaults::setObjectForKey(Value value, std::string_view key) {
    state_->set(Space::settings, key, std::move(value));
}

void SqliteDefaults::removeObjectForKey(std::string_view key) {
    state_->remove(Space::settings, key);
}

bool SqliteDefaults::synchronize() {
    const std::shared_ptr<State> state = state_;
    return state->synchronize();
}

Object SqliteDefaults::contents() const { return state_->contents(Space::settings); }

std::optional<std::string> SqliteDefaults::adapterValue(std::string_view name) const {
    const std::optional<Value> value = state_->value(Space::adapter, name);
    if (!value || !value->isString()) {
        return std::nullopt;
    }
    return std::string(value->asString());
}

bool SqliteDefaults::setAdapterValue(std::string_view name, std::string_view text) {
    const std::shared_ptr<State> state = state_;
    state->set(Space::adapter, name, text);
    return state->synchronize();
}

void SqliteDefaults::close() { state_->close(); }

} // namespace morvellacinto::native
