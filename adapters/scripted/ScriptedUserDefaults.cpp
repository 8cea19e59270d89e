// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedUserDefaults.h"

#include <stdexcept>
#include <utility>

namespace morvellacinto::scripted {

std::optional<Value> ScriptedUserDefaults::objectForKey(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    record("get ", key, raisesOnGet_);
    const auto found = current_.find(key);
    return found == current_.end() ? std::nullopt : std::optional(found->second);
}

void ScriptedUserDefaults::setObjectForKey(Value value, std::string_view key) {
    const std::lock_guard lock(mutex_);
    record("set ", key, raisesOnSet_);
    if (holdsUnstorable(value)) {
        throw std::invalid_argument("the value for " + std::string(key) +
                                    " is null or holds null or an instance");
    }
    current_.insert_or_assign(std::string(key), std::move(value));
}

void ScriptedUserDefaults::removeObjectForKey(std::string_view key) {
    const std::lock_guard lock(mutex_);
    record("remove ", key, raisesOnRemove_);
    current_.erase(std::string(key));
}

bool ScriptedUserDefaults::synchronize() {
    const std::lock_guard lock(mutex_);
    record("synchronize", "", false);
    if (failsFlush_) {
        return false;
    }
    flushed_ = current_;
    return true;
}

ScriptedUserDefaults::Contents ScriptedUserDefaults::flushed() const {
    const std::lock_guard lock(mutex_);
    return flushed_;
}

std::vector<std::string> ScriptedUserDefaults::takeOperations() {
    const std::lock_guard lock(mutex_);
    return std::exchange(operations_, {});
}

void ScriptedUserDefaults::record(const char* operation, std::string_view key, bool raises) const {
    operations_.push_back(operation + std::string(key));
    if (raises) {
        throw std::runtime_error("the script makes this fail: " + operations_.back());
    }
}

} // namespace morvellacinto::scripted
