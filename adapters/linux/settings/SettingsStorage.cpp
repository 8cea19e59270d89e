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

FileLock SettingsStorage::open(Connection& connection, milliseconds patience, Report& report) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (int made = 0; made < replacementsBorne;) {
        {
            FileLock shared = lockFiles(FileLock::Kind::shared, patience);
            if (connect(connection, shared)) {
                return shared;
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
    throw std::runtime_error(files_.database().string() + " is replaced time and again");
}

bool SettingsStorage::openToRead(Connection& connection, milliseconds patience, Report& report) {
    try {
        static_cast<void>(open(connection, patience, report));
        return true;
    } catch (const std::system_error& error) {
        if (!forbidsWriting(error.code()) || !std::filesystem::exists(files_.database())) {
            throw;
        }
        connection = std::make_unique<SettingsDatabase>(files_.database(),
                                                        SettingsDatabase::Layout::mustBeThere);
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
                                     milliseconds patience, Report& report) {
    const FileLock exclusive = lockFiles(FileLock::Kind::exclusive, patience);
    if (connection != nullptr && !connection->wasMoved()) {
        beginAnew(connection, damage.what(), report);
    }
}

FileLock SettingsStorage::lockFiles(FileLock::Kind kind, milliseconds patience) const {
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
bool SettingsStorage::connect(Connection& connection, const FileLock& shared) {
    const std::shared_ptr<ChangeSignal> known = memory_.signal();
    if (known == nullptr || !known->isNamedIn(shared)) {
        std::shared_ptr<ChangeSignal> found = ChangeSignal::find(shared);
        if (found == nullptr && !noSignal_) {
            return false;
        }
        memory_.useSignal(std::move(found));
    }
    if (connection != nullptr && !connection->wasMoved()) {
        return true;
    }
    connection.reset();
    if (!std::filesystem::exists(files_.database())) {
        return false;
    }
    try {
        connection = std::make_unique<SettingsDatabase>(files_.database(),
                                                        SettingsDatabase::Layout::mustBeThere);
    } catch (const DamageError&) {
        return false;
    }
    return true;
}

void SettingsStorage::make(Connection& connection, const FileLock& exclusive, Report& report) {
    const std::shared_ptr<ChangeSignal> known = memory_.signal();
    if (known == nullptr || !known->isNamedIn(exclusive)) {
        std::shared_ptr<ChangeSignal> signal = ChangeSignal::findOrMake(exclusive);
        noSignal_ = signal == nullptr;
        memory_.useSignal(std::move(signal));
    }
    connection.reset();
    files_.createDatabase();
    try {
        connection = std::make_unique<SettingsDatabase>(files_.database(),
                                                        SettingsDatabase::Layout::mayBeMade);
    } catch (const DamageError& damage) {
        beginAnew(connection, damage.what(), report);
    }
}

// With the exclusive lock, so that nobody commits and what is read is no older than memory.
void SettingsStorage::beginAnew(Connection& connection, const char* reason, Report& report) {
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
    const std::filesystem::path aside = files_.setAside();
    files_.createDatabase();
    connection =
        std::make_unique<SettingsDatabase>(files_.database(), SettingsDatabase::Layout::mayBeMade);
    const std::vector<SettingsDatabase::Change> known = memory_.everything();
    connection->write(known);
    if (const std::shared_ptr<ChangeSignal> signal = memory_.signal()) {
        signal->raise();
    }
    report.push_back("the settings database was damaged and is now " + aside.string() +
                     "; a new one was begun with " + std::to_string(known.size()) +
                     " known values (" + reason + ")");
}

} // namespace morvellacinto::native
