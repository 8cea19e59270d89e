// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/UserDefaults.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace morvellacinto::scripted {

/// Defaults in memory that record what was asked and fail when told to.
class MORVELLACINTO_EXPORT ScriptedUserDefaults final : public platform::UserDefaults {
public:
    using Contents = std::map<std::string, Value, std::less<>>; ///< by key

    [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const override;
    void setObjectForKey(Value value, std::string_view key) override;
    void removeObjectForKey(std::string_view key) override;
    [[nodiscard]] bool synchronize() override;

    /// While true, `synchronize` gives false and keeps the changes pending.
    void failFlush(bool fails) { failsFlush_ = fails; }
    /// While true, the operation throws std::runtime_error and changes nothing. @{
    void raiseOnGet(bool raises) { raisesOnGet_ = raises; }
    void raiseOnSet(bool raises) { raisesOnSet_ = raises; }
    void raiseOnRemove(bool raises) { raisesOnRemove_ = raises; } ///@}

    /// What the last successful flush kept.
    [[nodiscard]] Contents flushed() const;
    /// The operations since the last call, oldest first and failed ones included: "get KEY",
    /// "set KEY", "remove KEY" and "synchronize".
    [[nodiscard]] std::vector<std::string> takeOperations();

private:
    void record(const char* operation, std::string_view key, bool raises) const;

    mutable std::mutex mutex_;
    mutable std::vector<std::string> operations_;
    Contents current_;
    Contents flushed_;
    std::atomic<bool> failsFlush_ = false;
    std::atomic<bool> raisesOnGet_ = false;
    std::atomic<bool> raisesOnSet_ = false;
    std::atomic<bool> raisesOnRemove_ = false;
};

} // namespace morvellacinto::scripted
