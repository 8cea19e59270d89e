#include "SilentNames.h"

namespace morvellacinto::native {

namespace {
constexpr std::chrono::seconds silence(2);
}

void SilentNames::add(const std::string& name) {
    const std::lock_guard lock(mutex_);
    until_[name] = std::chrono::steady_clock::now() + silence;
}

bool SilentNames::contains(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto found = until_.find(name);
    if (found == until_.end()) {
        return false;
    }
    if (std::chrono::steady_clock::now() < found->second) {
        return true;
    }
    until_.erase(found);
    return false;
}

} // namespace morvellacinto::native
