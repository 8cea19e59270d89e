#include "SettingsMemory.h"

#include "ValueBlob.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <mutex>
#include <utility>

namespace morvellacinto::native {

namespace {

// How often a read looks for what no signal tells: changes by processes that have no memory in
// common with this one, and files that were deleted or replaced.
constexpr std::chrono::milliseconds lookInterval(100);
constexpr std::chrono::milliseconds retryInterval(1000);

// The kernel's tick, a few milliseconds wide, at a quarter of the price of the exact time.
std::chrono::milliseconds coarseNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

} // namespace

bool SettingsMemory::findIfCurrent(Space space, std::string_view key,
                                   std::optional<Value>& found) const {
    const std::shared_lock lock(mutex_);
    if (!current()) {
        return false;
    }
    if (const Entry* entry = entryOf(space, key)) {
        found = entry->value;
    }
    return true;
}

std::optional<Value> SettingsMemory::find(Space space, std::string_view key) const {
    const std::shared_lock lock(mutex_);
    const Entry* entry = entryOf(space, key);
    return entry == nullptr ? std::nullopt : entry->value;
}

bool SettingsMemory::isCurrent() const {
    const std::shared_lock lock(mutex_);
    return current();
}

Object SettingsMemory::contents(Space space) const {
    std::map<std::string_view, Value> sorted;
    const std::shared_lock lock(mutex_);
    for (const auto& [key, entry] : entries_[static_cast<std::size_t>(space)]) {
        if (entry.value) {
            sorted.emplace(key, *entry.value);
        }
    }
    Object all;
    for (const auto& [key, value] : sorted) {
        all.set(key, value);
    }
    return all;
}

void SettingsMemory::set(Space space, std::string_view key, Value value, std::string blob) {
    auto shared = std::make_shared<const std::string>(std::move(blob));
    // Leaves with the earlier value, which may take long to free.
    std::optional<Value> exchanged(std::move(value));
    const std::unique_lock lock(mutex_);
    if (closed_) {
        return;
    }
    Entry& entry = entriesOf(space).try_emplace(std::string(key)).first->second;
    entry.value.swap(exchanged);
    entry.blob = std::move(shared);
    entry.change = ++changes_;
}

void SettingsMemory::remove(Space space, std::string_view key) {
    std::optional<Value> removed;
    const std::unique_lock lock(mutex_);
    Entries& all = entriesOf(space);
    auto entry = all.find(key);
    if (entry == all.end() && cannotLook_ && !closed_) {
        entry = all.try_emplace(std::string(key)).first; // there may well be a row
    } else if (entry == all.end() || !entry->second.value) {
        return;
    }
    entry->second.value.swap(removed);
    entry->second.blob.reset();
    entry->second.change = ++changes_;
}

SettingsMemory::Pending SettingsMemory::pending() const {
    Pending pending;
    const std::shared_lock lock(mutex_);
    pending.listings = listings_;
    for (const Space space : spaces) {
        for (const auto& [key, entry] : entries_[static_cast<std::size_t>(space)]) {
            if (entry.change != 0) {
                pending.changes.push_back({space, key, entry.blob});
                pending.numbers.push_back(entry.change);
            }
        }
    }
    return pending;
}

void SettingsMemory::committed(const Pending& pending, std::int64_t stamp) {
    const std::unique_lock lock(mutex_);
    ++commits_;
    // A listing taken over meanwhile may hold what others committed after us, hidden by the changes
    // that are stored now: only reading once more tells.
    const bool listedMeanwhile = listings_ != pending.listings;
    mustRead_ = mustRead_ || listedMeanwhile;
    for (std::size_t index = 0; index < pending.changes.size(); ++index) {
        const SettingsDatabase::Change& change = pending.changes[index];
        Entries& all = entriesOf(change.space);
        const auto entry = all.find(change.key);
        if (entry == all.end()) {
            continue;
        }
        entry->second.stamp = change.blob == nullptr || listedMeanwhile ? 0 : stamp;
        if (entry->second.change != pending.numbers[index]) {
            continue; // changed again meanwhile
        }
        entry->second.change = 0;
        entry->second.blob.reset();
        if (!entry->second.value) {
            all.erase(entry);
        }
    }
    if (signal_ != nullptr) {
        const std::uint64_t before = signal_->raise();
        if (before == seen_ && !listedMeanwhile) {
            seen_ = before + 1; // nobody else has committed: memory is up to date
        }
    }
}

bool SettingsMemory::hasStored() const {
    const std::shared_lock lock(mutex_);
    return std::any_of(entries_.begin(), entries_.end(), [](const Entries& all) {
        return std::any_of(all.begin(), all.end(),
                           [](const auto& entry) { return entry.second.stamp != 0; });
    });
}

std::vector<SettingsDatabase::Change> SettingsMemory::everything() const {
    std::vector<SettingsDatabase::Change> all;
    const std::shared_lock lock(mutex_);
    for (const Space space : spaces) {
        for (const auto& [key, entry] : entries_[static_cast<std::size_t>(space)]) {
            if (entry.value) {
                all.push_back(
                    {space, key, std::make_shared<const std::string>(encodeValue(*entry.value))});
            }
        }
    }
    return all;
}

SettingsMemory::Moment SettingsMemory::now() const {
    const std::shared_lock lock(mutex_);
    return {commits_, signal_ == nullptr ? 0 : signal_->value(), mustRead_};
}

std::int64_t SettingsMemory::stampOf(Space space, std::string_view key) const {
    const std::shared_lock lock(mutex_);
    const Entry* entry = entryOf(space, key);
    return entry == nullptr ? 0 : entry->stamp;
}

bool SettingsMemory::takeOver(std::vector<SettingsDatabase::Row>& rows, Moment since,
                              bool complete) {
    const std::unique_lock lock(mutex_);
    if (commits_ != since.commits) {
        return false;
    }
    ++listings_;
    mustRead_ = mustRead_ && !complete;
    for (SettingsDatabase::Row& row : rows) {
        Entry& entry = entriesOf(row.space).try_emplace(std::move(row.key)).first->second;
        entry.listing = listings_;
        if (!row.loaded) {
            continue;
        }
        entry.stamp = row.stamp;
        if (entry.change == 0) {
            entry.value.swap(row.value); // freed with the rows
        }
    }
    for (Entries& all : entries_) {
        for (auto entry = all.begin(); complete && entry != all.end();) {
            const bool gone = entry->second.listing != listings_;
            if (gone && entry->second.change == 0) {
                entry = all.erase(entry);
                continue;
            }
            if (gone) {
                entry->second.stamp = 0;
            }
            ++entry;
        }
    }
    return true;
}

void SettingsMemory::lookedAt(Moment since) {
    const std::unique_lock lock(mutex_);
    seen_ = since.raised;
    cannotLook_ = false;
    nextLook_ = coarseNow() + lookInterval;
}

void SettingsMemory::couldNotLook() {
    const std::unique_lock lock(mutex_);
    cannotLook_ = true;
    nextLook_ = coarseNow() + retryInterval;
}

std::shared_ptr<ChangeSignal> SettingsMemory::signal() const {
    const std::shared_lock lock(mutex_);
    return signal_;
}

void SettingsMemory::useSignal(std::shared_ptr<ChangeSignal> signal) {
    const std::unique_lock lock(mutex_);
    signal_.swap(signal);
    nextLook_ = Milliseconds(0);
}

void SettingsMemory::close() {
    std::array<Entries, spaces.size()> dropped;
    const std::unique_lock lock(mutex_);
    closed_ = true;
    dropped.swap(entries_);
    signal_.reset();
}

bool SettingsMemory::isClosed() const {
    const std::shared_lock lock(mutex_);
    return closed_;
}

bool SettingsMemory::current() const {
    if (closed_) {
        return true;
    }
    if (coarseNow() >= nextLook_) {
        return false;
    }
    return cannotLook_ || (signal_ != nullptr && signal_->value() == seen_);
}

const SettingsMemory::Entry* SettingsMemory::entryOf(Space space, std::string_view key) const {
    const Entries& all = entries_[static_cast<std::size_t>(space)];
    const auto entry = all.find(key);
    return entry == all.end() ? nullptr : &entry->second;
}

} // namespace morvellacinto::native
