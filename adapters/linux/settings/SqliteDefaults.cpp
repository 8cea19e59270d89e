#include "SqliteDefaults.h"

#include "ValueBlob.h"

#include <chrono>
#include <exception>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr std::chrono::milliseconds flushPatience(5000);
constexpr std::chrono::milliseconds firstReadPatience(500);

// The last thing that an operation does: the host may let go of the defaults meanwhile.
void tell(const Diagnostics& diagnostics, const std::vector<std::string>& report) {
    const Diagnostics sink = report.empty() ? nullptr : diagnostics;
    for (const std::string& sentence : report) {
        if (sink) {
            sink(sentence);
        }
    }
}

} // namespace

SqliteDefaults::SqliteDefaults(const std::filesystem::path& directory, std::string_view bundle,
                               Diagnostics diagnostics)
    : diagnostics_(std::move(diagnostics)), files_(directory, bundle) {}

SqliteDefaults::~SqliteDefaults() { SqliteDefaults::close(); }

std::optional<Value> SqliteDefaults::objectForKey(std::string_view key) const {
    return read([&] { return store_.find(Space::settings, key); });
}

void SqliteDefaults::setObjectForKey(Value value, std::string_view key) {
    auto blob = std::make_shared<const std::string>(encodeValue(value));
    store_.change(Space::settings, key, std::move(value), std::move(blob));
}

void SqliteDefaults::removeObjectForKey(std::string_view key) {
    store_.change(Space::settings, key, std::nullopt, nullptr);
}

bool SqliteDefaults::synchronize() {
    Report report;
    bool isFlushed = false;
    {
        const Wait wait(flushPatience, areWaitsOver_);
        const std::lock_guard lock(mutex_);
        isFlushed = flush(wait, report);
    }
    tell(diagnostics_, report);
    return isFlushed;
}

Object SqliteDefaults::contents() const {
    return read([&] { return store_.contents(Space::settings); });
}

KeptText SqliteDefaults::adapterValue(std::string_view name) const {
    return read([&] {
        // Asked before the value: what is read in between cannot make it too sure.
        KeptText kept{std::nullopt, store_.isCurrent()};
        if (const auto value = store_.find(Space::adapter, name); value && value->isString()) {
            kept = {std::string(value->asString()), true};
        }
        return kept;
    });
}

void SqliteDefaults::setAdapterValue(std::string_view name, std::string_view text) {
    store_.change(Space::adapter, name, text,
                  std::make_shared<const std::string>(encodeValue(text)));
}

void SqliteDefaults::close() {
    endWaits();
    isClosing_ = true;
    const std::lock_guard lock(mutex_);
    database_.reset();
    store_.close();
}

template <class Find>
std::invoke_result_t<Find> SqliteDefaults::read(const Find& find) const {
    Report report;
    if (store_.isDue()) {
        look(report);
    }
    auto found = find();
    tell(diagnostics_, report);
    return found;
}

void SqliteDefaults::look(Report& report) const {
    const Wait wait(store_.wasRead() ? std::chrono::milliseconds(0) : firstReadPatience,
                    areWaitsOver_);
    std::unique_lock lock(mutex_, std::try_to_lock);
    while (!lock.owns_lock() && !store_.wasRead() && wait.goesOn()) {
        static_cast<void>(lock.try_lock());
    }
    if (!lock.owns_lock() || !store_.isDue() || isClosing_) {
        return; // another thread is at it, or has just been
    }
    try {
        static_cast<void>(connect(wait, report));
    } catch (const std::exception& error) {
        database_.reset();
        const bool wasRead = store_.wasRead();
        store_.looked(false);
        if (!wasRead || dynamic_cast<const BusyError*>(&error) == nullptr) {
            tellOnce(error.what(), report);
        }
    }
}

bool SqliteDefaults::flush(const Wait& wait, Report& report) const {
    const std::vector<Store::Change> pending = store_.pending();
    if (pending.empty() || isClosing_) {
        return !isClosing_;
    }
    try {
        Lock lock;
        try {
            lock = connect(wait, report);
            database_->write(pending);
        } catch (const DamageError& damage) {
            lock.reset();
            lock = replace(damage.what(), wait, report);
            database_->write(pending);
        }
        store_.committed(pending);
        return true;
    } catch (const std::exception& error) {
        // After a failed flush to disk nothing is known of the connection's files: open them anew.
        database_.reset();
        tellOnce(error.what(), report);
        return false;
    }
}

// Brings memory up to date with the database that bears the name now, which no other is put in
// place of while the lock lives.
SqliteDefaults::Lock SqliteDefaults::connect(const Wait& wait, Report& report) const {
    std::string damage;
    try {
        Lock shared = files_.lock(SettingsFiles::Sharing::shared, wait);
        if (reach(wait, report)) {
            return shared;
        }
    } catch (const DamageError& error) {
        damage = error.what();
    }
    return replace(std::move(damage), wait, report);
}

// For a database that is damaged or missing, unless others have replaced it.
SqliteDefaults::Lock SqliteDefaults::replace(std::string damage, const Wait& wait,
                                             Report& report) const {
    Lock alone = files_.lock(SettingsFiles::Sharing::alone, wait);
    try {
        const bool isOpen = database_ != nullptr && !database_->wasMoved();
        if ((damage.empty() || !isOpen) && reach(wait, report)) {
            return alone;
        }
    } catch (const DamageError& error) {
        damage = error.what();
    }
    if (damage.empty() && database_ != nullptr) {
        damage = files_.database().string() + " was deleted while it was in use";
    }
    if (!files_.hasOrphanedDraft()) {
        rescue();
        const std::vector<Store::Change> known = store_.everything();
        SettingsDatabase::fill(files_.draft(), known, wait);
        files_.completeDraft();
        if (!damage.empty()) {
            report.push_back("the settings were begun anew with " + std::to_string(known.size()) +
                             " known values, and what was damaged of them set aside (" + damage +
                             ")");
        }
    }
    database_.reset();
    files_.installDraft();
    if (!reach(wait, report)) {
        throw std::runtime_error(files_.database().string() + " was deleted at once");
    }
    return alone;
}

// False when there is no database.
bool SqliteDefaults::reach(const Wait& wait, Report& report) const {
    if (database_ == nullptr || database_->wasMoved()) {
        if (!files_.hasDatabase()) {
            return false;
        }
        database_ = std::make_unique<SettingsDatabase>(files_.database(), wait);
        versionRead_ = 0;
    }
    database_->setWait(wait);
    if (const int version = database_->version(); version != versionRead_) {
        std::vector<SettingsDatabase::Row> rows;
        database_->read(rows);
        for (const SettingsDatabase::Row& row : rows) {
            if (!row.value) {
                tellOnce("the value of " + percentEncoded(row.key) + " in " +
                             files_.database().string() + " is damaged and counts as absent",
                         report);
            }
        }
        store_.takeOver(std::move(rows), true);
        versionRead_ = version; // what others have committed since the question is read again
    }
    store_.looked(true);
    return true;
}

// Takes over what can still be read of the database that is to be replaced.
void SqliteDefaults::rescue() const {
    std::vector<SettingsDatabase::Row> rows;
    try {
        if (database_ != nullptr) {
            database_->read(rows);
        }
    } catch (const std::runtime_error&) {
        // The rows before the damage have been read.
    }
    store_.takeOver(std::move(rows), false);
}

void SqliteDefaults::tellOnce(const std::string& sentence, Report& report) const {
    if (!areWaitsOver_ && told_.insert(sentence).second) {
        report.push_back(sentence);
    }
}

} // namespace morvellacinto::native
