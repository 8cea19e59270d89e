#include "Store.h"

#include "ValueBlob.h"

#include <ctime>
#include <mutex>

namespace morvellacinto::native {

namespace {

// With the clock's tick, what others flush is seen after 100 milliseconds at the latest.
constexpr std::chrono::milliseconds lookInterval(90);
// Of the first look, which reads wait for.
constexpr std::chrono::milliseconds retryInterval(1000);

// The kernel's tick, at most 10 milliseconds wide, at a quarter of the price of the exact time.
std::chrono::milliseconds coarseNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

} // namespace

std::optional<Value> Store::find(Space space, std::string_view key) const {
    const std::shared_lock lock(mutex_);
    const auto entry = entries_.find(std::pair(space, key));
    return entry == entries_.end() ? std::nullopt : entry->second.value;
}

Object Store::contents(Space space) const {
    Object all;
    const std::shared_lock lock(mutex_);
    for (const auto& [name, entry] : entries_) {
        if (entry.value && name.first == space) {
            all.set(name.second, *entry.value);
        }
    }
    return all;
}

void Store::change(Space space, std::string_view key, std::optional<Value> value,
                   std::shared_ptr<const std::string> blob) {
    const std::unique_lock lock(mutex_);
    if (!isClosed_) {
        Entry& entry = entries_[{space, std::string(key)}];
        entry.value.swap(value); // what it was is freed when the lock is gone
        entry.blob = std::move(blob);
        entry.isPending = true;
    }
}

std::vector<Store::Change> Store::pending() const {
    std::vector<Change> pending;
    const std::shared_lock lock(mutex_);
    for (const auto& [name, entry] : entries_) {
        if (entry.isPending) {
            pending.push_back({name.first, name.second, entry.blob});
        }
    }
    return pending;
}

void Store::committed(const std::vector<Change>& changes) {
    const std::unique_lock lock(mutex_);
    for (const Change& change : changes) {
        const auto entry = entries_.find(std::pair(change.space, std::string_view(change.key)));
        if (entry == entries_.end() || entry->second.blob != change.blob) {
            continue; // closed or changed again meanwhile
        }
        entry->second.isPending = false;
        entry->second.blob.reset();
        if (!entry->second.value) {
            entries_.erase(entry);
        }
    }
}

std::vector<Store::Change> Store::everything() const {
    std::vector<Change> all;
    const std::shared_lock lock(mutex_);
    for (const auto& [name, entry] : entries_) {
        if (entry.value) {
            all.push_back({name.first, name.second,
                           std::make_shared<const std::string>(encodeValue(*entry.value))});
        }
    }
    return all;
}

void Store::takeOver(std::vector<SettingsDatabase::Row> rows, bool all) {
    Entries taken;
    for (SettingsDatabase::Row& row : rows) {
        taken[{row.space, std::move(row.key)}].value = std::move(row.value);
    }
    const std::unique_lock lock(mutex_);
    for (auto& [name, entry] : entries_) {
        const auto row = taken.find(name);
        if (entry.isPending || (!all && (row == taken.end() || !row->second.value))) {
            taken.insert_or_assign(name, std::move(entry));
        }
    }
    entries_.swap(taken); // which is freed when the lock is gone
}

bool Store::isDue() const noexcept { return coarseNow() >= nextLook_.load(); }

void Store::looked(bool successfully) noexcept {
    isCurrent_ = successfully;
    wasRead_ = wasRead_ || successfully;
    nextLook_ = coarseNow() + (wasRead_ ? lookInterval : retryInterval);
}

void Store::close() {
    Entries dropped; // freed when the lock is gone
    const std::unique_lock lock(mutex_);
    isClosed_ = true;
    isCurrent_ = false;
    entries_.swap(dropped);
}

} // namespace morvellacinto::native
