#include "morvellacinto/scripted/ScriptedUserDefaults.h"

#include <stdexcept>
#include <utility>

namespace morvellacinto::scripted {

ScriptedUserDefaults::ScriptedUserDefaults() = default;

std::optional<Value> ScriptedUserDefaults::objectForKey(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    record("get", key, raisesOnGet_);
    const auto found = current_.find(key);
    return found == current_.end() ? std::nullopt : std::optional(found->second);
}

void ScriptedUserDefaults::setObjectForKey(Value value, std::string_view key) {
    const bool isStorable = !holdsUnstorable(value);
    const std::lock_guard lock(mutex_);
    record("set", key, raisesOnSet_);
    if (!isStorable) {
        throw std::invalid_argument("the value for " + std::string(key) +
                                    " is null or holds null or an instance");
    }
    current_.insert_or_assign(std::string(key), std::move(value));
}

void ScriptedUserDefaults::removeObjectForKey(std::string_view key) {
    const std::lock_guard lock(mutex_);
    record("remove", key, raisesOnRemove_);
    if (const auto found = current_.find(key); found != current_.end()) {
        current_.erase(found);
    }
}

bool ScriptedUserDefaults::synchronize() {
    const std::lock_guard lock(mutex_);
    operations_.emplace_back("synchronize");
    if (failsFlush_) {
        return false;
    }
    flushed_ = current_;
    return true;
}

void ScriptedUserDefaults::failFlush(bool fails) {
    const std::lock_guard lock(mutex_);
    failsFlush_ = fails;
}

void ScriptedUserDefaults::raiseOnGet(bool raises) {
    const std::lock_guard lock(mutex_);
    raisesOnGet_ = raises;
}

void ScriptedUserDefaults::raiseOnSet(bool raises) {
    const std::lock_guard lock(mutex_);
    raisesOnSet_ = raises;
}

void ScriptedUserDefaults::raiseOnRemove(bool raises) {
    const std::lock_guard lock(mutex_);
    raisesOnRemove_ = raises;
}

ScriptedUserDefaults::Contents ScriptedUserDefaults::flushed() const {
    const std::lock_guard lock(mutex_);
    return flushed_;
}

std::vector<std::string> ScriptedUserDefaults::takeOperations() {
    const std::lock_guard lock(mutex_);
    return std::exchange(operations_, {});
}

void ScriptedUserDefaults::record(std::string_view operation, std::string_view key,
                                  bool raises) const {
    operations_.push_back(std::string(operation) + " " + std::string(key));
    if (raises) {
        throw std::runtime_error("the script makes this fail: " + operations_.back());
    }
}

} // namespace morvellacinto::scripted
