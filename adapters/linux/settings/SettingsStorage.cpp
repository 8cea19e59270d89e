#include "SettingsStorage.h"

#include "ChangeSignal.h"
#include "SettingsMemory.h"

#include <stdexcept>
#include <system_error>
#include <utility>

namespace morvellacinto::native {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds alonePatience(10);
constexpr int replacementsBorne = 4;

bool forbidsWriting(const std::error_code& error) {
    return error == std::errc::read_only_file_system || error == std::errc::permission_denied;
}

} // namespace

SettingsStorage::SettingsStorage(SettingsFiles files, SettingsMemory& memory)
    : files_(std::move(files)), memory_(memory) {}

FileLock SettingsStorage::open(Connection& connection, const Patience& patience, Report& report) {
    for (int made = 0; made < replacementsBorne;) {
        {
            FileLock shared = lockFiles(FileLock::Kind::shared, patience);
            if (connect(connection, shared, patience)) {
                return shared;
            }
        }
        // While this waits to be alone, others may make what is missing.
        try {
            make(connection, lockFiles(FileLock::Kind::exclusive, Patience(alonePatience)),
                 patience, report);
            ++made;
        } catch (const std::system_error& error) {
            if (error.code() != std::errc::timed_out || patience.isOver()) {
                throw;
            }
        }
    }
    throw std::runtime_error(files_.database().string() + " is replaced time and again");
}

bool SettingsStorage::openToRead(Connection& connection, const Patience& patience, Report& report) {
    try {
        static_cast<void>(open(connection, patience, report));
        return true;
    } catch (const std::system_error& error) {
        if (!forbidsWriting(error.code()) || !std::filesystem::exists(files_.database())) {
            throw;
        }
        connection = std::make_unique<SettingsDatabase>(
            files_.database(), SettingsDatabase::Layout::mustBeThere, patience);
        return false;
    }
}

bool SettingsStorage::isUpToDate(const Connection& connection) const {
    const std::shared_ptr<ChangeSignal> signal = memory_.signal();
    return connection != nullptr && !connection->wasMoved() &&
           (signal == nullptr || signal->isNamedIn(files_.lock()));
}

void SettingsStorage::read(SettingsDatabase& database, std::vector<SettingsDatabase::Row>& rows,
                           Report& report) const {
    database.read([this](Space space, std::string_view key) { return memory_.stampOf(space, key); },
                  rows);
    for (const SettingsDatabase::Row& row : rows) {
        if (row.loaded && !row.value) {
            report.push_back("the value of " + percentEncoded(row.key) + " in " +
                             files_.database().string() + " is damaged and counts as absent");
        }
    }
}

void SettingsStorage::replaceDamaged(Connection& connection, const DamageError& damage,
                                     const Patience& patience, Report& report) {
    const FileLock exclusive = lockFiles(FileLock::Kind::exclusive, patience);
    if (connection != nullptr && !connection->wasMoved()) {
        beginAnew(connection, damage.what(), patience, report);
    }
}

FileLock SettingsStorage::lockFiles(FileLock::Kind kind, const Patience& patience) const {
    try {
        return FileLock(files_.lock(), kind, patience);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::no_such_file_or_directory) {
            throw;
        }
    }
    files_.createDirectory();
    return FileLock(files_.lock(), kind, patience);
}

// False when something is missing or damaged, which takes an exclusive lock to make.
bool SettingsStorage::connect(Connection& connection, const FileLock& shared,
                              const Patience& patience) {
    const std::shared_ptr<ChangeSignal> known = memory_.signal();
    if (known == nullptr || !known->isNamedIn(shared)) {
        std::shared_ptr<ChangeSignal> found = ChangeSignal::find(shared);
        if (found == nullptr && !noSignal_) {
            return false;
        }
        memory_.useSignal(std::move(found));
    }
    if (connection != nullptr && !connection->wasMoved()) {
        connection->setPatience(patience);
        return true;
    }
    if (!files_.hasDatabase() || !files_.damage().empty()) {
        return false;
    }
    connection.reset();
    try {
        connection = std::make_unique<SettingsDatabase>(
            files_.database(), SettingsDatabase::Layout::mustBeThere, patience);
    } catch (const DamageError&) {
        return false;
    }
    return true;
}

void SettingsStorage::make(Connection& connection, const FileLock& exclusive,
                           const Patience& patience, Report& report) {
    const std::shared_ptr<ChangeSignal> known = memory_.signal();
    if (known == nullptr || !known->isNamedIn(exclusive)) {
        std::shared_ptr<ChangeSignal> signal = ChangeSignal::findOrMake(exclusive);
        noSignal_ = signal == nullptr;
        memory_.useSignal(std::move(signal));
    }
    if (!std::filesystem::exists(files_.database()) && memory_.hasStored()) {
        beginAnew(connection, "it was deleted while it was in use", patience, report);
        return;
    }
    connection.reset();
    files_.createDatabase();
    std::string damage = files_.damage();
    try {
        // SQLite would delete the log of an empty file.
        if (damage.empty() || files_.hasDatabase()) {
            connection = std::make_unique<SettingsDatabase>(
                files_.database(),
                damage.empty() ? SettingsDatabase::Layout::mayBeMade
                               : SettingsDatabase::Layout::mustBeThere,
                patience);
        }
    } catch (const DamageError& found) {
        damage = damage.empty() ? found.what() : damage;
    }
    if (!damage.empty()) {
        beginAnew(connection, damage, patience, report);
    }
}

// With the exclusive lock, so that nobody commits and what is read is no older than memory.
void SettingsStorage::beginAnew(Connection& connection, const std::string& reason,
                                const Patience& patience, Report& report) {
    if (connection != nullptr) {
        std::vector<SettingsDatabase::Row> rows;
        Report partial; // what is damaged goes without saying
        try {
            read(*connection, rows, partial);
        } catch (const std::runtime_error&) {
            // The rows before the damage have been read.
        }
        static_cast<void>(memory_.takeOver(rows, memory_.now(), false));
        connection.reset();
    }
    const std::string fate = std::filesystem::exists(files_.database())
                                 ? "was damaged and is now " + files_.setAside().string()
                                 : "is gone";
    files_.createDatabase();
    connection = std::make_unique<SettingsDatabase>(files_.database(),
                                                    SettingsDatabase::Layout::mayBeMade, patience);
    const std::vector<SettingsDatabase::Change> known = memory_.everything();
    connection->write(known);
    if (const std::shared_ptr<ChangeSignal> signal = memory_.signal()) {
        signal->raise();
    }
    report.push_back("the settings database " + fate + "; a new one was begun with " +
                     std::to_string(known.size()) + " known values (" + reason + ")");
}

} // namespace morvellacinto::native
