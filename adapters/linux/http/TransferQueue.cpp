#include "TransferQueue.h"

#include <algorithm>

namespace morvellacinto::native {

namespace {

constexpr std::size_t firstSlots = 4;
constexpr std::chrono::milliseconds patience(25); // while none ends
constexpr std::chrono::milliseconds longestPatience(250);

} // namespace

void TransferQueue::add(std::shared_ptr<Transfer> transfer, Clock::time_point now) {
    const auto [place, isNew] = origins_.try_emplace(transfer->origin());
    Origin& origin = place->second;
    if (isNew) {
        origin.slots = firstSlots;
    }
    if (origin.waiting.empty()) {
        origin.lastGrowth = now;
        if (origin.running < origin.slots) {
            origin.lastProgress = now;
        }
    }
    waiting_.emplace(transfer->deadline(), transfer.get());
    origin.waiting.push_back(std::move(transfer));
}

std::shared_ptr<Transfer> TransferQueue::nextToStart(Clock::time_point now) {
    if (isFull() || waiting_.empty()) {
        return nullptr;
    }
    Origin* origin = nextInTurn(
        [](const Origin& each) { return !each.waiting.empty() && each.running < each.slots; });
    if (origin == nullptr) {
        origin = nextInTurn(
            [&](const Origin& each) { return mayGrow(each) && now >= each.nextGrowth(); });
        if (origin == nullptr) {
            return nullptr;
        }
        origin->slots = std::min(2 * origin->slots, mostSlots(*origin));
        origin->lastProgress = now;
        origin->lastGrowth = now;
        origin->reached = false;
    }
    std::shared_ptr<Transfer> next = std::move(origin->waiting.front());
    origin->waiting.pop_front();
    waiting_.erase({next->deadline(), next.get()});
    ++origin->running;
    ++running_;
    return next;
}

// So that none is passed over when there are fewer slots than are asked for.
template <class Predicate>
TransferQueue::Origin* TransferQueue::nextInTurn(Predicate isWanted) {
    auto place = origins_.upper_bound(lastInTurn_);
    for (std::size_t seen = 0; seen < origins_.size(); ++seen, ++place) {
        if (place == origins_.end()) {
            place = origins_.begin();
        }
        if (isWanted(place->second)) {
            lastInTurn_ = place->first;
            return &place->second;
        }
    }
    return nullptr;
}

std::shared_ptr<Transfer> TransferQueue::nextExpired(Clock::time_point now) {
    if (waiting_.empty() || waiting_.begin()->first > now) {
        return nullptr;
    }
    Transfer* const due = waiting_.begin()->second;
    waiting_.erase(waiting_.begin());
    const auto place = origins_.find(due->origin());
    auto& waiting = place->second.waiting;
    const auto found = std::find_if(waiting.begin(), waiting.end(),
                                    [due](const auto& transfer) { return transfer.get() == due; });
    std::shared_ptr<Transfer> expired = std::move(*found);
    waiting.erase(found);
    if (waiting.empty() && place->second.running == 0) {
        origins_.erase(place);
    }
    return expired;
}

void TransferQueue::finished(const std::string& origin, Clock::time_point now) {
    const auto place = origins_.find(origin);
    --running_;
    --place->second.running;
    place->second.lastProgress = now;
    if (place->second.running == 0 && place->second.waiting.empty()) {
        origins_.erase(place);
    }
}

void TransferQueue::found(const std::string& name, bool isNewConnection, Clock::time_point now) {
    const auto place = origins_.find(name);
    if (place == origins_.end()) {
        return;
    }
    Origin& origin = place->second;
    if (!origin.found && !origin.reached) {
        origin.lastProgress = now;
    }
    (isNewConnection ? origin.found : origin.reached) = true;
}

std::optional<TransferQueue::Clock::time_point> TransferQueue::nextEvent() const {
    if (waiting_.empty()) {
        return std::nullopt;
    }
    Clock::time_point next = waiting_.begin()->first;
    for (const auto& [name, origin] : origins_) {
        if (mayGrow(origin) && !isFull()) {
            next = std::min(next, origin.nextGrowth());
        }
    }
    return next;
}

std::vector<std::shared_ptr<Transfer>> TransferQueue::takeAll() {
    std::vector<std::shared_ptr<Transfer>> all;
    for (auto& [name, origin] : origins_) {
        std::move(origin.waiting.begin(), origin.waiting.end(), std::back_inserter(all));
    }
    origins_.clear();
    waiting_.clear();
    running_ = 0;
    return all;
}

TransferQueue::Clock::time_point TransferQueue::Origin::nextGrowth() const noexcept {
    return std::min(lastProgress + patience, lastGrowth + longestPatience);
}

std::size_t TransferQueue::mostSlots(const Origin& origin) const noexcept {
    const std::size_t ofOthers = running_ - origin.running;
    return (maximumRunning_ - ofOthers) / 2;
}

bool TransferQueue::mayGrow(const Origin& origin) const noexcept {
    return (origin.found || origin.reached) && !origin.waiting.empty() &&
           origin.running >= origin.slots && origin.slots < mostSlots(origin);
}

} // namespace morvellacinto::native
