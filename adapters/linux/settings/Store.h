#pragma once

#include "SettingsDatabase.h"

#include <atomic>
#include <chrono>
#include <map>
#include <shared_mutex>
#include <utility>

namespace morvellacinto::native {

/// All values as this process sees them: what was last read from the database, and over it the
/// changes made here that wait for a flush. Knows when to look at the database again. Any thread.
class Store {
public:
    using Change = SettingsDatabase::Change;

    [[nodiscard]] std::optional<Value> find(Space space, std::string_view key) const;
    /// All values, sorted by key.
    [[nodiscard]] Object contents(Space space) const;
    /// Nothing removes, also what is not known to be there. `blob` is the encoded value, or null.
    void change(Space space, std::string_view key, std::optional<Value> value,
                std::shared_ptr<const std::string> blob);

    /// The changes that wait for a flush.
    [[nodiscard]] std::vector<Change> pending() const;
    /// The changes have been stored; those made since remain pending.
    void committed(const std::vector<Change>& changes);
    /// What makes a new database as full as memory, pending changes included.
    [[nodiscard]] std::vector<Change> everything() const;
    /// Takes over what the database holds; when that is not `all`, other values stay as they are.
    void takeOver(std::vector<SettingsDatabase::Row> rows, bool all);

    /// Whether it is time to look at the database.
    [[nodiscard]] bool isDue() const noexcept;
    /// Whether the last look found out what is there.
    [[nodiscard]] bool isCurrent() const noexcept { return isCurrent_; }
    [[nodiscard]] bool wasRead() const noexcept { return wasRead_; }
    void looked(bool successfully) noexcept;

    /// Forgets everything, for good.
    void close();

private:
    struct Entry {
        std::optional<Value> value;              // nothing: removed but not flushed, or damaged
        std::shared_ptr<const std::string> blob; // what to flush; null removes
        bool isPending = false;
    };
    struct Before {
        using is_transparent = void;
        template <class A, class B>
        bool operator()(const A& a, const B& b) const noexcept {
            return a.first != b.first ? a.first < b.first
                                      : std::string_view(a.second) < std::string_view(b.second);
        }
    };
    using Entries = std::map<std::pair<Space, std::string>, Entry, Before>;

    mutable std::shared_mutex mutex_;
    Entries entries_;
    bool isClosed_ = false;
    std::atomic<std::chrono::milliseconds> nextLook_{};
    std::atomic<bool> isCurrent_ = false;
    std::atomic<bool> wasRead_ = false;
};

} // namespace morvellacinto::native
