// SPDX-License-Identifier: MIT
#pragma once

// Read in this order: SqliteDefaults (the values in memory, opening and replacing the database),
// SettingsDatabase (a connection), SettingsFiles (names and locks), ValueBlob.

#include "Diagnostics.h"
#include "KeptValues.h"
#include "SettingsDatabase.h"
#include "SettingsFiles.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace morvellacinto::native {

/// Persistent defaults in an SQLite database, one for each bundle; several processes may have the
/// same one open. docs/storage.md describes the files.
/// Everything is kept in memory. Reads are answered from there, and within 100 ms see what another
/// process has flushed; none waits for a flush. A pending change of this process hides what others
/// flush under its key. The last one to flush a key wins.
/// Any thread. Constructing opens nothing; the first use does.
class SqliteDefaults final : public platform::UserDefaults {
public:
    /// The files live in `directory`, made with its parents when it is missing, and are named for
    /// `bundle`. `diagnostics` hears of damage and of each failure once, at the end of the
    /// operation that meets it.
    SqliteDefaults(const std::filesystem::path& directory, std::string_view bundle,
                   Diagnostics diagnostics);

    [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const override;
    /// Throws std::invalid_argument also for a value that would take over 256 MiB, or that has more
    /// than 512 arrays and objects in one another.
    void setObjectForKey(Value value, std::string_view key) override;
    void removeObjectForKey(std::string_view key) override;
    /// Waits up to 5 seconds for other processes that write; the first read waits up to half a
    /// second, others do not.
    [[nodiscard]] bool synchronize() override;
    [[nodiscard]] std::int64_t erasures() const override;

    /// All values, sorted by key.
    [[nodiscard]] Object contents() const;

    /// A text of the adapter's own, which no key of the defaults reaches.
    [[nodiscard]] KeptText adapterValue(std::string_view name) const;
    /// `synchronize` flushes it with the rest.
    void setAdapterValue(std::string_view name, std::string_view text);

    /// The same as it is on disk at this moment, for which it waits up to half a second; not
    /// certain when that could not be found out. Tells nothing: that is left to the next operation.
    [[nodiscard]] KeptText freshAdapterValue(std::string_view name) const;
    /// See NativePlatform::eraseStoredData. From its commit on all is put into a database that
    /// nothing of the erased was ever in, which any process does that comes upon it unfinished.
    [[nodiscard]] bool erase();

    /// From now on nothing waits for other processes.
    void endWaits() noexcept { areWaitsOver_ = true; }
    /// As `endWaits`, and waits for a commit that is being written. From then on `synchronize`
    /// gives false, and reads are answered from what memory holds.
    void close();

private:
    using Lock = SettingsFiles::Lock;
    using Report = std::vector<std::string>;

    template <class Find>
    [[nodiscard]] std::invoke_result_t<Find> read(const Find& find) const;
    /// Whether memory is up to date now. Without a `report` also when the last look was just now.
    bool look(std::chrono::milliseconds patience, Report* report) const;
    [[nodiscard]] std::optional<std::string> adapterText(std::string_view name) const;
    // Of memory:
    [[nodiscard]] std::optional<Value> find(const Name& name) const;
    void change(Space space, std::string_view key, std::optional<Value> value);
    [[nodiscard]] Entries pending() const;
    void committed(const Entries& changes) const;
    // `mutex_` is held by the callers of these:
    [[nodiscard]] bool flush() const;
    [[nodiscard]] Lock connect(std::string damage) const;
    [[nodiscard]] bool reach() const;
    void fill(const std::filesystem::path& draft, const std::string& damage) const;
    void tellOnce(const std::string& sentence) const;

    const Diagnostics diagnostics_;
    const SettingsFiles files_;
    std::atomic<bool> areWaitsOver_ = false;
    std::atomic<bool> isClosing_ = false;
    // Reading brings all of this up to date.
    mutable std::shared_mutex entriesMutex_;
    mutable Entries entries_; // as last read, and over it the changes that wait for a flush
    mutable std::atomic<std::chrono::milliseconds> nextLook_{};
    mutable std::atomic<bool> wasRead_ = false;
    mutable std::atomic<bool> isCurrent_ = false; // the last look found out what is there
    // For what follows. No read but the first waits for it.
    mutable std::mutex mutex_;
    mutable Wait wait_{{}, areWaitsOver_}; // of the operation under way
    mutable Report report_;                // of it too: told once the mutex is free
    mutable std::set<std::string> told_;
    mutable std::unique_ptr<SettingsDatabase> database_;
    mutable int versionRead_ = 0;    // of the open database; 0: none yet
    mutable bool isErasing_ = false; // as that version says
};

} // namespace morvellacinto::native
