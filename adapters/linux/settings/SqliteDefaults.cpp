// SPDX-License-Identifier: MIT
#include "SqliteDefaults.h"

#include "ValueBlob.h"

#include <algorithm>
#include <ctime>
#include <exception>

namespace morvellacinto::native {

namespace {

constexpr std::chrono::milliseconds flushPatience(5000);
constexpr std::chrono::milliseconds firstReadPatience(500);
constexpr std::chrono::milliseconds firstReadInterval(1000);
// With the clock's tick, what others flush is seen after 100 milliseconds at the latest.
constexpr std::chrono::milliseconds lookInterval(90);

// Rows of the adapter's own: the time of the last erasure in nanoseconds, which tells it from those
// before, and, until what was erased is gone from all files too, a mark.
constexpr Name erasedAt(Space::adapter, "erasedAt");
constexpr Name erasing(Space::adapter, "erasing");

// The kernel's tick, at most 10 milliseconds wide, at a quarter of the price of the exact time.
std::chrono::milliseconds coarseNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

bool isPending(const Entry& entry) { return entry.blob != nullptr || !entry.value; }

bool isPendingIn(const Entries& entries, const Name& name) {
    const auto entry = entries.find(name);
    return entry != entries.end() && isPending(entry->second);
}

bool isErasable(const Name& name) {
    const auto& [space, key] = name;
    return space == Space::settings
               ? key.starts_with(platform::libraryKeyPrefix)
               : key == keptVendorIdentifier || key == keptAdvertisingIdentifier;
}

std::optional<Value> valueIn(const Entries& entries, const Name& name) {
    const auto entry = entries.find(name);
    return entry == entries.end() ? std::nullopt : entry->second.value;
}

// What an erasure that is not finished leaves of what was read.
void dropErased(Entries& entries) {
    std::erase_if(entries, [isErasing = entries.contains(erasing)](const auto& named) {
        return isErasing && isErasable(named.first) && !isPending(named.second);
    });
}

// The last thing that an operation does: the host may let go of the defaults meanwhile.
void tell(const Diagnostics& diagnostics, const std::vector<std::string>& report) {
    if (!report.empty() && diagnostics) {
        const Diagnostics sink = diagnostics;
        std::for_each(report.begin(), report.end(), sink);
    }
}

} // namespace

SqliteDefaults::SqliteDefaults(const std::filesystem::path& directory, std::string_view bundle,
                               Diagnostics diagnostics)
    : diagnostics_(std::move(diagnostics)), files_(directory, bundle) {}

std::optional<Value> SqliteDefaults::objectForKey(std::string_view key) const {
    return read([&] { return find({Space::settings, key}); });
}

void SqliteDefaults::setObjectForKey(Value value, std::string_view key) {
    change(Space::settings, key, std::move(value));
}

void SqliteDefaults::removeObjectForKey(std::string_view key) {
    change(Space::settings, key, std::nullopt);
}

bool SqliteDefaults::synchronize() {
    const Wait wait(flushPatience, areWaitsOver_);
    std::unique_lock lock(mutex_);
    wait_ = wait;
    const bool isFlushed = flush();
    const Report report = std::exchange(report_, {});
    lock.unlock();
    tell(diagnostics_, report);
    return isFlushed;
}

std::int64_t SqliteDefaults::erasures() const {
    return read([&] { return find(erasedAt).value_or(0).asInt64(); });
}

Object SqliteDefaults::contents() const {
    return read([&] {
        Object all;
        const std::shared_lock lock(entriesMutex_);
        for (const auto& [name, entry] : entries_) {
            if (entry.value && std::get<Space>(name) == Space::settings) {
                all.set(std::get<std::string>(name), *entry.value);
            }
        }
        return all;
    });
}

KeptText SqliteDefaults::adapterValue(std::string_view name) const {
    return read([&] {
        // Asked before the value: what is read in between cannot make it too sure.
        KeptText kept{std::nullopt, isCurrent_};
        if (auto text = adapterText(name)) {
            kept = {std::move(text), true};
        }
        kept.erasures = find(erasedAt).value_or(0).asInt64(); // after it: what is erased is older
        return kept;
    });
}

void SqliteDefaults::setAdapterValue(std::string_view name, std::string_view text) {
    change(Space::adapter, name, text);
}

KeptText SqliteDefaults::freshAdapterValue(std::string_view name) const {
    const bool isFresh = look(firstReadPatience, nullptr);
    return {adapterText(name), isFresh};
}

bool SqliteDefaults::erase() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    {
        const std::lock_guard noFlush(mutex_); // which would write after the mark what is to go
        change(erasedAt.first, erasedAt.second, std::chrono::nanoseconds(now).count());
        change(erasing.first, erasing.second, true); // what is read from here on is without them
        const std::unique_lock lock(entriesMutex_);
        std::erase_if(entries_, [](const auto& named) { return isErasable(named.first); });
    }
    return synchronize();
}

void SqliteDefaults::close() {
    endWaits();
    isClosing_ = true;
    const std::lock_guard lock(mutex_);
    database_.reset();
    isCurrent_ = false;
}

template <class Find>
std::invoke_result_t<Find> SqliteDefaults::read(const Find& find) const {
    Report report;
    if (coarseNow() >= nextLook_.load()) {
        look(wasRead_ ? std::chrono::milliseconds(0) : firstReadPatience, &report);
    }
    auto found = find();
    tell(diagnostics_, report);
    return found;
}

bool SqliteDefaults::look(std::chrono::milliseconds patience, Report* report) const {
    const Wait wait(patience, areWaitsOver_);
    std::unique_lock lock(mutex_, std::try_to_lock);
    while (!lock.owns_lock() && wait.goesOn()) {
        static_cast<void>(lock.try_lock());
    }
    if (!lock.owns_lock() || isClosing_ || (report != nullptr && coarseNow() < nextLook_.load())) {
        return false; // another thread is at it, or has just been
    }
    wait_ = wait;
    bool hasLooked = true;
    try {
        if (database_ == nullptr || isErasing_ || database_->wasMoved() ||
            database_->version() != versionRead_) {
            static_cast<void>(connect(""));
        }
        nextLook_ = coarseNow() + lookInterval;
    } catch (const std::exception& error) {
        database_.reset();
        isCurrent_ = false;
        nextLook_ = coarseNow() + (wasRead_ ? lookInterval : firstReadInterval);
        tellOnce(error.what());
        hasLooked = false;
    }
    if (report != nullptr) {
        report->swap(report_);
    }
    return hasLooked;
}

std::optional<std::string> SqliteDefaults::adapterText(std::string_view name) const {
    const auto value = find({Space::adapter, name});
    return value && value->isString() ? std::optional(std::string(value->asString()))
                                      : std::nullopt;
}

std::optional<Value> SqliteDefaults::find(const Name& name) const {
    const std::shared_lock lock(entriesMutex_);
    return valueIn(entries_, name);
}

// Nothing removes, also what is not known to be there.
void SqliteDefaults::change(Space space, std::string_view key, std::optional<Value> value) {
    Entry changed{std::move(value), nullptr};
    if (changed.value) {
        changed.blob = std::make_shared<const std::string>(encodeValue(*changed.value));
    }
    const std::unique_lock lock(entriesMutex_);
    std::swap(entries_[{space, std::string(key)}], changed); // freed when the lock is gone
}

// An erasure is written first and alone: what was set after it is not to be erased with the rest.
Entries SqliteDefaults::pending() const {
    Entries pending;
    const std::shared_lock lock(entriesMutex_);
    const bool isAlone = isPendingIn(entries_, erasing);
    std::copy_if(entries_.begin(), entries_.end(), std::inserter(pending, pending.end()),
                 [&](const auto& named) {
                     const Name name(named.first);
                     return isPending(named.second) &&
                            (!isAlone || name == erasing || name == erasedAt);
                 });
    return pending;
}

void SqliteDefaults::committed(const Entries& changes) const {
    const std::unique_lock lock(entriesMutex_);
    for (const auto& [name, change] : changes) {
        const auto entry = entries_.find(name);
        if (entry == entries_.end() || entry->second.blob != change.blob) {
            continue; // changed again meanwhile
        }
        entry->second.blob.reset();
        if (!entry->second.value) {
            entries_.erase(entry);
        }
    }
}

bool SqliteDefaults::flush() const {
    Entries changes = pending();
    if (changes.empty() || isClosing_) {
        return !isClosing_ && !isErasing_;
    }
    try {
        Lock lock;
        try {
            lock = connect("");
            database_->write(changes = pending()); // without those that others have erased
        } catch (const DamageError& damage) {
            lock.reset();
            lock = connect(damage.what());
            database_->write(changes = pending());
        }
        committed(changes);
        if (changes.contains(erasing)) {
            versionRead_ = 0;
            lock.reset();
            connect("").reset();
            return flush();
        }
        return !isErasing_;
    } catch (const std::exception& error) {
        // After a failed flush to disk nothing is known of the connection's files: open them anew.
        database_.reset();
        tellOnce(error.what());
        return false;
    }
}

// Brings memory up to date with the database that bears the name now, which no other is put in
// place of while the lock lives. One that is missing, that has this damage, or that an erasure has
// begun in, is replaced unless others have done so.
SqliteDefaults::Lock SqliteDefaults::connect(std::string damage) const {
    Lock lock;
    for (const auto sharing : {SettingsFiles::Sharing::shared, SettingsFiles::Sharing::alone}) {
        lock.reset();
        lock = files_.lock(sharing, wait_);
        const bool isOpen = database_ != nullptr && !database_->wasMoved();
        try {
            if ((damage.empty() || !isOpen) && reach() && !isErasing_) {
                return lock;
            }
        } catch (const DamageError& error) {
            damage = error.what();
        }
    }
    if (damage.empty() && database_ != nullptr && !isErasing_) {
        damage = files_.database().string() + " was deleted while it was in use";
    }
    files_.replace([&](const std::filesystem::path& draft) { fill(draft, damage); });
    database_.reset();
    if (!reach()) {
        throw std::runtime_error(files_.database().string() + " was deleted at once");
    }
    if (isErasing_) { // until the mark goes, whoever finds it does all of this again
        files_.removeRemains();
        database_->write({{{erasing.first, std::string(erasing.second)}, {}}});
        versionRead_ = 0;
        static_cast<void>(reach());
    }
    return lock;
}

// Opens the database unless that is done, and reads it when others have changed it. False when
// there is none.
bool SqliteDefaults::reach() const {
    if (database_ == nullptr || database_->wasMoved()) {
        if (!files_.hasDatabase()) {
            return false;
        }
        database_ = std::make_unique<SettingsDatabase>(files_.database(), wait_);
        versionRead_ = 0;
    }
    if (const int version = database_->version(); version != versionRead_) {
        Entries rows;
        if (const std::size_t damaged = database_->read(rows); damaged > 0) {
            tellOnce(std::to_string(damaged) + " of the values in " + files_.database().string() +
                     " are damaged and count as absent");
        }
        isErasing_ = rows.contains(erasing);
        const std::unique_lock lock(entriesMutex_);
        const bool haveOthersErased = wasRead_ && !isPendingIn(entries_, erasedAt) &&
                                      valueIn(rows, erasedAt) != valueIn(entries_, erasedAt);
        std::erase_if(entries_, [&](const auto& old) {
            return !isPending(old.second) || (haveOthersErased && isErasable(old.first));
        });
        entries_.merge(rows);
        dropErased(entries_);
        versionRead_ = version; // what others have committed since the question is read again
    }
    nextLook_ = coarseNow() + lookInterval;
    isCurrent_ = wasRead_ = true;
    return true;
}

// With the pending changes, before what can still be read of the database that is to be replaced,
// before what was read of it earlier.
void SqliteDefaults::fill(const std::filesystem::path& draft, const std::string& damage) const {
    Entries known = pending();
    try {
        if (database_ != nullptr) {
            database_->read(known);
        }
    } catch (const DamageError&) {
        // The rows before the damage have been read.
    }
    {
        const std::unique_lock lock(entriesMutex_);
        known.insert(entries_.begin(), entries_.end());
        dropErased(known);
        entries_.insert(known.begin(), known.end());
    }
    std::erase_if(known, [](const auto& named) { return !named.second.value; });
    const SettingsDatabase filled(draft, wait_, &known);
    if (!damage.empty()) {
        report_.push_back("the settings were begun anew with " + std::to_string(known.size()) +
                          " known values, and what was damaged of them set aside (" + damage + ")");
    }
}

void SqliteDefaults::tellOnce(const std::string& sentence) const {
    if (!areWaitsOver_ && told_.insert(sentence).second) {
        report_.push_back(sentence);
    }
}

} // namespace morvellacinto::native
