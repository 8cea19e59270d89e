#include "SqliteDefaults.h"

#include "SettingsMemory.h"
#include "SettingsStorage.h"
#include "ValueBlob.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <unistd.h>
#include <utility>
#include <vector>

namespace morvellacinto::native {

namespace {

using Report = SettingsStorage::Report;

constexpr std::chrono::milliseconds flushPatience(5000);
constexpr std::chrono::milliseconds readPatience(500);

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

struct SqliteDefaults::State {
    State(std::filesystem::path directory, const std::string& bundle, Diagnostics sink)
        : diagnostics(std::move(sink)),
          storage(SettingsFiles(std::move(directory), bundle), memory) {}

    [[nodiscard]] std::optional<Value> value(Space space, std::string_view key);
    [[nodiscard]] bool synchronize();
    void close();

    const pid_t process = getpid();
    SettingsMemory memory;

    // Set to live on for good, within reach of leak checkers.
    std::shared_ptr<State> itself;
    State* keptBefore = nullptr;

private:
    void look(Report& report);
    void lookNow(Report& report);
    void readChanges(Report& report);
    [[nodiscard]] bool flush(Report& report);
    [[nodiscard]] std::int64_t write(const SettingsMemory::Pending& pending,
                                     const Patience& patience, Report& report);
    void tell(const Report& report) const;

    const Diagnostics diagnostics;
    SettingsStorage storage;
    Failures failures;
    std::atomic<bool> closing = false;

    // Reads go on while a flush takes its time. With both locks, `writing` comes first.
    std::mutex writing;
    SettingsStorage::Connection writer;
    std::mutex reading;
    SettingsStorage::Connection reader;
    std::int64_t readVersion = -1; // of the database when memory took it over
};

std::optional<Value> SqliteDefaults::State::value(Space space, std::string_view key) {
    std::optional<Value> found;
    if (memory.findIfCurrent(space, key, found)) {
        return found;
    }
    Report report;
    look(report);
    found = memory.find(space, key);
    tell(report);
    return found;
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
    closing = true;
    const std::lock_guard noWriting(writing);
    const std::lock_guard noReading(reading);
    memory.close();
    writer.reset();
    reader.reset();
}

void SqliteDefaults::State::look(Report& report) {
    const std::lock_guard lock(reading);
    if (memory.isCurrent()) {
        return; // another thread has just done it
    }
    lookNow(report);
}

// Brings memory up to date; when that fails it stays as it is. `reading` is held.
void SqliteDefaults::State::lookNow(Report& report) {
    try {
        readChanges(report);
        failures.ended(Failures::reading);
    } catch (const std::exception& error) {
        reader.reset();
        memory.couldNotLook();
        if (!closing) {
            failures.happened(Failures::reading, error.what(), report);
        }
    }
}

void SqliteDefaults::State::readChanges(Report& report) {
    const Patience patience(readPatience, &closing);
    bool mayBeKept = true;
    if (!storage.isUpToDate(reader)) {
        mayBeKept = storage.openToRead(reader, patience, report);
        readVersion = -1;
    } else {
        reader->setPatience(patience);
    }
    for (bool damagedBefore = false;;) {
        const SettingsMemory::Moment now = memory.now();
        try {
            const std::int64_t version = reader->version();
            std::vector<SettingsDatabase::Row> rows;
            Report damaged;
            const bool mustRead = now.mustRead || version != readVersion;
            if (mustRead) {
                storage.read(*reader, rows, damaged);
            }
            if (!mustRead || memory.takeOver(rows, now, true)) {
                readVersion = version;
                memory.lookedAt(now);
                report.insert(report.end(), damaged.begin(), damaged.end());
                if (!mayBeKept) {
                    reader.reset();
                    memory.couldNotLook();
                }
                return;
            }
        } catch (const DamageError& damage) {
            if (std::exchange(damagedBefore, true)) {
                throw;
            }
            storage.replaceDamaged(reader, damage, patience, report);
            mayBeKept = storage.openToRead(reader, patience, report);
            readVersion = -1;
        }
    }
}

bool SqliteDefaults::State::flush(Report& report) {
    if (memory.isClosed()) {
        return false;
    }
    SettingsMemory::Pending pending = memory.pending();
    if (pending.changes.empty()) {
        return true;
    }
    if (writer == nullptr) {
        // The reader notices what has become of the files meanwhile, which a new connection cannot.
        const std::lock_guard lock(reading);
        lookNow(report);
        pending = memory.pending();
    }
    const Patience patience(flushPatience);
    try {
        std::int64_t stamp = 0;
        try {
            stamp = write(pending, patience, report);
        } catch (const DamageError& damage) {
            storage.replaceDamaged(writer, damage, patience, report);
            stamp = write(pending, patience, report);
        }
        memory.committed(pending, stamp);
        failures.ended(Failures::writing);
        return true;
    } catch (const std::exception& error) {
        // After a failed flush to disk nothing is known of the connection's files: open them anew.
        writer.reset();
        failures.happened(Failures::writing, error.what(), report);
        return false;
    }
}

std::int64_t SqliteDefaults::State::write(const SettingsMemory::Pending& pending,
                                          const Patience& patience, Report& report) {
    const FileLock lock = storage.open(writer, patience, report);
    return writer->write(pending.changes);
}

void SqliteDefaults::State::tell(const Report& report) const {
    if (diagnostics) {
        for (const std::string& sentence : report) {
            diagnostics(sentence);
        }
    }
}

SqliteDefaults::SqliteDefaults(std::filesystem::path directory, const std::string& bundle,
                               Diagnostics diagnostics)
    : state_(std::make_shared<State>(std::move(directory), bundle, std::move(diagnostics))) {}

SqliteDefaults::~SqliteDefaults() {
    if (getpid() != state_->process) {
        // Closing a connection that was made before fork() would harm the parent's: never do it.
        static std::atomic<State*> kept = nullptr;
        state_->itself = state_;
        state_->keptBefore = kept.exchange(state_.get());
        return;
    }
    close();
}

std::optional<Value> SqliteDefaults::objectForKey(std::string_view key) const {
    return state_->value(Space::settings, key);
}

void SqliteDefaults::setObjectForKey(Value value, std::string_view key) {
    std::string blob = encodeValue(value);
    state_->memory.set(Space::settings, key, std::move(value), std::move(blob));
}

void SqliteDefaults::removeObjectForKey(std::string_view key) {
    static_cast<void>(state_->value(Space::settings, key)); // brings memory up to date
    state_->memory.remove(Space::settings, key);
}

bool SqliteDefaults::synchronize() {
    const std::shared_ptr<State> state = state_;
    return state->synchronize();
}

Object SqliteDefaults::contents() const {
    static_cast<void>(state_->value(Space::settings, {})); // brings memory up to date
    return state_->memory.contents(Space::settings);
}

std::optional<std::string> SqliteDefaults::adapterValue(std::string_view name) const {
    const std::optional<Value> value = state_->value(Space::adapter, name);
    if (!value || !value->isString()) {
        return std::nullopt;
    }
    return std::string(value->asString());
}

bool SqliteDefaults::setAdapterValue(std::string_view name, std::string_view text) {
    const std::shared_ptr<State> state = state_;
    const Value value = text;
    state->memory.set(Space::adapter, name, value, encodeValue(value));
    return state->synchronize();
}

void SqliteDefaults::close() { state_->close(); }

} // namespace morvellacinto::native
