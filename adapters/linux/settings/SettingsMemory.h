#pragma once

#include "ChangeSignal.h"
#include "SettingsDatabase.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace morvellacinto::native {

/// All values as this process sees them: what was last read from the database, and over it the
/// changes made here that wait for a flush. Knows when to look at the database again. Any thread.
class SettingsMemory {
public:
    struct Pending {
        std::vector<SettingsDatabase::Change> changes;
        std::vector<std::uint64_t> numbers; ///< which of the changes made here each is
        std::uint64_t listings;             ///< taken over by then
    };
    /// A point in time, to tell whether what was read since is still news.
    struct Moment {
        std::uint64_t commits; ///< made by this process
        std::uint64_t raised;  ///< the signal's value
        bool mustRead;         ///< even a database that has not changed since it was last read
    };

    /// Whether `found` has been set: false when memory must be brought up to date first.
    [[nodiscard]] bool findIfCurrent(Space space, std::string_view key,
                                     std::optional<Value>& found) const;
    [[nodiscard]] std::optional<Value> find(Space space, std::string_view key) const;
    [[nodiscard]] bool isCurrent() const;
    /// All values, sorted by key.
    [[nodiscard]] Object contents(Space space) const;

    /// `blob` is the encoded value.
    void set(Space space, std::string_view key, Value value, std::string blob);
    void remove(Space space, std::string_view key);

    [[nodiscard]] Pending pending() const;
    /// Marks changes as stored under `stamp` and tells the other processes.
    void committed(const Pending& pending, std::int64_t stamp);
    /// Whether any value is known to have been in the database.
    [[nodiscard]] bool hasStored() const;
    /// Everything there is, pending changes included, encoded.
    [[nodiscard]] std::vector<SettingsDatabase::Change> everything() const;

    [[nodiscard]] Moment now() const;
    /// Under which a value was last read or stored; 0 when there is none.
    [[nodiscard]] std::int64_t stampOf(Space space, std::string_view key) const;
    /// Takes over rows; keys that are not among them are gone when `complete`. False, and nothing
    /// done, when this process has committed since `since`: the rows may be older than memory.
    [[nodiscard]] bool takeOver(std::vector<SettingsDatabase::Row>& rows, Moment since,
                                bool complete);
    /// Memory is no older than `since`.
    void lookedAt(Moment since);
    /// The database could not be read; memory serves as it is for a while.
    void couldNotLook();

    /// Null when the system offers none: then memory is never known to be current.
    [[nodiscard]] std::shared_ptr<ChangeSignal> signal() const;
    void useSignal(std::shared_ptr<ChangeSignal> signal);

    /// Forgets everything, for good.
    void close();
    [[nodiscard]] bool isClosed() const;

private:
    using Milliseconds = std::chrono::milliseconds;
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
        std::int64_t stamp = 0;                  // of the row that was read or stored; 0: no row
        std::uint64_t listing = 0;               // in which the row was last seen
    };
    using Entries = std::unordered_map<std::string, Entry, KeyHash, std::equal_to<>>;

    // The lock is held by the caller of these.
    [[nodiscard]] bool current() const;
    [[nodiscard]] const Entry* entryOf(Space space, std::string_view key) const;
    [[nodiscard]] Entries& entriesOf(Space space) {
        return entries_[static_cast<std::size_t>(space)];
    }

    mutable std::shared_mutex mutex_;
    std::array<Entries, spaces.size()> entries_;
    std::shared_ptr<ChangeSignal> signal_;
    std::uint64_t seen_ = 0; // the signal's value that memory is no older than
    Milliseconds nextLook_{0};
    bool mustRead_ = false;
    bool cannotLook_ = false;
    bool closed_ = false;
    std::uint64_t changes_ = 0;  // made here so far
    std::uint64_t commits_ = 0;  // likewise
    std::uint64_t listings_ = 0; // taken over so far
};

} // namespace morvellacinto::native
