#include "TransferQueue.h"

#include <algorithm>

namespace morvellacinto::native {

namespace {

constexpr std::size_t slotStep = 4;
constexpr std::size_t maximumSlots = 64; // of one origin
constexpr std::chrono::milliseconds patience(25);

} // namespace

void TransferQueue::add(std::shared_ptr<Transfer> transfer, Clock::time_point now) {
    const auto [place, isNew] = origins_.try_emplace(transfer->origin());
    Origin& origin = place->second;
    if (isNew) {
        origin.slots = slotStep;
    }
    if (origin.waiting.empty() && origin.running < origin.slots) {
        origin.lastProgress = now;
    }
    waiting_.emplace(transfer->deadline(), transfer.get());
    origin.waiting.push_back(std::move(transfer));
}

std::shared_ptr<Transfer> TransferQueue::nextToStart(Clock::time_point now) {
    for (auto& [name, origin] : origins_) {
        if (origin.waiting.empty() || isFull()) {
            continue;
        }
        if (origin.mayGrow() && now >= origin.lastProgress + patience) {
            origin.slots += slotStep;
            origin.lastProgress = now;
        }
        if (origin.running < origin.slots) {
            std::shared_ptr<Transfer> next = std::move(origin.waiting.front());
            origin.waiting.pop_front();
            waiting_.erase({next->deadline(), next.get()});
            ++origin.running;
            ++running_;
            return next;
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

std::optional<TransferQueue::Clock::time_point> TransferQueue::nextEvent() const {
    if (waiting_.empty()) {
        return std::nullopt;
    }
    Clock::time_point next = waiting_.begin()->first;
    for (const auto& [name, origin] : origins_) {
        if (origin.mayGrow() && !isFull()) {
            next = std::min(next, origin.lastProgress + patience);
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

bool TransferQueue::Origin::mayGrow() const noexcept {
    return !waiting.empty() && running >= slots && slots < maximumSlots;
}

bool TransferQueue::isFull() const noexcept { return running_ >= maximumRunning; }

} // namespace morvellacinto::native
