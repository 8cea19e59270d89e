// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedClock.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace morvellacinto::scripted {

Date ScriptedClock::now() const {
    const std::lock_guard lock(mutex_);
    return date_;
}

void ScriptedClock::advance(Duration duration) {
    if (!(duration.count() >= 0)) {
        throw std::invalid_argument("a clock cannot advance by " +
                                    std::to_string(duration.count()) + " seconds");
    }
    Duration end{};
    Date dateAtEnd;
    {
        const std::lock_guard lock(mutex_);
        end = elapsed_ + duration;
        dateAtEnd.secondsSinceReference = date_.secondsSinceReference + duration.count();
    }
    while (const Block block = takeDue(end)) {
        block();
    }
    const std::lock_guard lock(mutex_);
    elapsed_ = end;
    date_ = dateAtEnd; // not the sum of the steps, which would round differently
}

void ScriptedClock::set(Date date) {
    const std::lock_guard lock(mutex_);
    date_ = date;
}

void ScriptedClock::schedule(Duration delay, Block block) {
    const std::lock_guard lock(mutex_);
    if (!isShutDown_) {
        scheduled_.emplace(elapsed_ + delay, std::move(block));
    }
}

void ScriptedClock::shutdown() {
    std::multimap<Duration, Block> dropped; // destroyed without the lock
    const std::lock_guard lock(mutex_);
    isShutDown_ = true;
    dropped.swap(scheduled_);
}

ScriptedClock::Block ScriptedClock::takeDue(Duration end) {
    const std::lock_guard lock(mutex_);
    const auto first = scheduled_.begin();
    if (first == scheduled_.end() || first->first > end) {
        return nullptr;
    }
    const Duration moment = std::max(elapsed_, first->first);
    date_.secondsSinceReference += (moment - elapsed_).count();
    elapsed_ = moment;
    Block block = std::move(first->second);
    scheduled_.erase(first);
    return block;
}

} // namespace morvellacinto::scripted
