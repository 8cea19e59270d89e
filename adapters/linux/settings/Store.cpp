#include "Store.h"

#include "ValueBlob.h"

#include <ctime>
#include <mutex>
#include <utility>

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
    const Entries& entries = spaces_[static_cast<std::size_t>(space)];
    const auto entry = entries.find(key);
    return entry == entries.end() ? std::nullopt : entry->second.value;
}

Object Store::contents(Space space) const {
    Object all;
    const std::shared_lock lock(mutex_);
    for (const auto& [key, entry] : spaces_[static_cast<std::size_t>(space)]) {
        if (entry.value) {
            all.set(key, *entry.value);
        }
    }
    return all;
}

void Store::change(Space space, std::string_view key, std::optional<Value> value,
                   std::shared_ptr<const std::string> blob) {
    const std::unique_lock lock(mutex_);
    if (!isClosed_) {
        Entry& entry = of(spaces_, space).try_emplace(std::string(key)).first->second;
        entry.value.swap(value); // what it was is freed when the lock is gone
        entry.blob = std::move(blob);
        entry.isPending = true;
    }
}

std::vector<Store::Change> Store::pending() const {
    std::vector<Change> pending;
    const std::shared_lock lock(mutex_);
    for (const Space space : {Space::settings, Space::adapter}) {
        for (const auto& [key, entry] : spaces_[static_cast<std::size_t>(space)]) {
            if (entry.isPending) {
                pending.push_back({space, key, entry.blob});
            }
        }
    }
    return pending;
}

void Store::committed(const std::vector<Change>& changes) {
    const std::unique_lock lock(mutex_);
    for (const Change& change : changes) {
        Entries& entries = of(spaces_, change.space);
        const auto entry = entries.find(change.key);
        if (entry == entries.end() || entry->second.blob != change.blob) {
            continue; // closed or changed again meanwhile
        }
        entry->second.isPending = false;
        entry->second.blob.reset();
        if (!entry->second.value) {
            entries.erase(entry);
        }
    }
}

std::vector<Store::Change> Store::everything() const {
    std::vector<Change> all;
    for (const Space space : {Space::settings, Space::adapter}) {
        for (const Object::Member& member : contents(space)) {
            all.push_back({space, std::string(member.key()),
                           std::make_shared<const std::string>(encodeValue(member.value))});
        }
    }
    return all;
}

void Store::takeOver(std::vector<SettingsDatabase::Row> rows, bool all) {
    Spaces taken;
    for (SettingsDatabase::Row& row : rows) {
        of(taken, row.space)[std::move(row.key)].value = std::move(row.value);
    }
    const std::unique_lock lock(mutex_);
    for (const Space space : {Space::settings, Space::adapter}) {
        for (auto& [key, entry] : of(spaces_, space)) {
            const auto row = of(taken, space).find(key);
            const bool isRead = row != of(taken, space).end() && row->second.value;
            if (entry.isPending || (!all && !isRead)) {
                of(taken, space).insert_or_assign(key, std::move(entry));
            }
        }
    }
    spaces_.swap(taken); // which is freed when the lock is gone
}

bool Store::isDue() const noexcept { return coarseNow() >= nextLook_.load(); }

void Store::looked(bool successfully) noexcept {
    isCurrent_ = successfully;
    wasRead_ = wasRead_ || successfully;
    nextLook_ = coarseNow() + (wasRead_ ? lookInterval : retryInterval);
}

void Store::close() {
    Spaces dropped; // freed when the lock is gone
    const std::unique_lock lock(mutex_);
    isClosed_ = true;
    isCurrent_ = false;
    spaces_.swap(dropped);
}

} // namespace morvellacinto::native
