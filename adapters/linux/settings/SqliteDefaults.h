#pragma once

#include "Diagnostics.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// Persistent defaults in an SQLite database, one for each bundle; several processes may have the
/// same one open. docs/storage.md describes the files.
///
/// Everything is kept in memory. Reads are answered from there, and still see at the next read what
/// another process has flushed; when that process has no System V shared memory in common with this
/// one (another sandbox), within 100 ms. A pending change of this process hides what others flush
/// under its key. The last one to flush a key wins.
///
/// Any thread. Constructing opens nothing; the first use does. In a child made by fork() only the
/// destructor may be called, and does nothing.
class SqliteDefaults final : public platform::UserDefaults {
public:
    /// The files live in `directory`, made with its parents when it is missing, and are named for
    /// `bundle`. `diagnostics` hears of damage and failures, once for each and not once a call,
    /// inside the operation that meets them.
    SqliteDefaults(std::filesystem::path directory, const std::string& bundle,
                   Diagnostics diagnostics);
    SqliteDefaults(const SqliteDefaults&) = delete;
    SqliteDefaults& operator=(const SqliteDefaults&) = delete;
    /// As `close`.
    ~SqliteDefaults() override;

    [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const override;
    /// Throws std::invalid_argument also for a value that would take over 256 MiB.
    void setObjectForKey(Value value, std::string_view key) override;
    void removeObjectForKey(std::string_view key) override;
    /// Waits up to 5 seconds for other processes that write; reads wait up to half a second.
    [[nodiscard]] bool synchronize() override;

    /// All values, sorted by key.
    [[nodiscard]] Object contents() const;

    /// A text of the adapter's own, which no key of the defaults reaches; nothing when there is
    /// none.
    [[nodiscard]] std::optional<std::string> adapterValue(std::string_view name) const;
    /// Stores a text of the adapter's own and flushes, with the result of `synchronize`.
    [[nodiscard]] bool setAdapterValue(std::string_view name, std::string_view text);

    /// Closes the database once a flush in progress has ended, but ends the waiting of a read;
    /// pending changes are dropped. From
    /// then on there is nothing to read, changes are ignored and `synchronize` gives false.
    void close();

private:
    struct State;
    // Shared with the operations under way, which may be reporting while this is destroyed.
    std::shared_ptr<State> state_;
};

} // namespace morvellacinto::native
