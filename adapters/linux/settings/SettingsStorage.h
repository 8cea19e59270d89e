#pragma once

#include "FileLock.h"
#include "Patience.h"
#include "SettingsDatabase.h"
#include "SettingsFiles.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace morvellacinto::native {

class SettingsMemory;

/// Makes connections to the settings database and replaces it when it is damaged, so that several
/// processes and threads do not get into each other's way. Any thread; failures leave as
/// exceptions.
class SettingsStorage {
public:
    using Connection = std::unique_ptr<SettingsDatabase>;
    /// Sentences for the diagnostics, told once no lock is held.
    using Report = std::vector<std::string>;

    /// `memory` gets the signal, and has the values that a damaged database may have lost.
    SettingsStorage(SettingsFiles files, SettingsMemory& memory);

    /// Connects to the database that bears the name now, unless `connection` already is. While the
    /// lock that it returns is held, the database is not replaced.
    [[nodiscard]] FileLock open(Connection& connection, const Patience& patience, Report& report);

    /// As `open` for one who only reads and needs no lock. False when nothing can be written to the
    /// disk: such a connection must not be kept, or those made after it could not write either.
    [[nodiscard]] bool openToRead(Connection& connection, const Patience& patience, Report& report);

    /// Whether `connection` and the signal are those that a newcomer would get.
    [[nodiscard]] bool isUpToDate(const Connection& connection) const;

    /// Appends the rows of the database, those that memory has by their stamps only.
    void read(SettingsDatabase& database, std::vector<SettingsDatabase::Row>& rows,
              Report& report) const;

    /// For a connection that has met damage: sets the database aside and begins a new one with
    /// what memory has or can still be read, unless others have done so.
    void replaceDamaged(Connection& connection, const DamageError& damage, const Patience& patience,
                        Report& report);

private:
    [[nodiscard]] FileLock lockFiles(FileLock::Kind kind, const Patience& patience) const;
    [[nodiscard]] bool connect(Connection& connection, const FileLock& shared,
                               const Patience& patience);
    void make(Connection& connection, const FileLock& exclusive, const Patience& patience,
              Report& report);
    void beginAnew(Connection& connection, const std::string& reason, const Patience& patience,
                   Report& report);

    const SettingsFiles files_;
    SettingsMemory& memory_;
    std::atomic<bool> noSignal_ = false; // the system offers none
};

} // namespace morvellacinto::native
