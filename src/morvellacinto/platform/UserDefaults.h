// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"
#include "morvellacinto/platform/Interface.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace morvellacinto::platform {

/// What every key of the library's own begins with.
inline constexpr std::string_view libraryKeyPrefix = "se.kovra.v5.";

/// The application's persistent defaults: a key-value store shared by everything in the process.
///
/// All operations may be called on any thread. Each is atomic for its key: a read that races a
/// write sees the old or the new value.
class MORVELLACINTO_EXPORT UserDefaults : public Interface {
public:
    /// The value stored under `key`, pending changes included, or nothing.
    [[nodiscard]] virtual std::optional<Value> objectForKey(std::string_view key) const = 0;

    /// Stores `value`, replacing an earlier one. Throws std::invalid_argument, and keeps the
    /// earlier value, when `value` is null or holds null or an instance at any depth.
    virtual void setObjectForKey(Value value, std::string_view key) = 0;

    /// Deletes what is stored under `key`; without effect when there is nothing.
    virtual void removeObjectForKey(std::string_view key) = 0;

    /// Writes pending changes and returns when they would survive loss of power. False when that
    /// failed: the values stay readable in this process, and the next call tries again.
    [[nodiscard]] virtual bool synchronize() = 0;

    /// A number that is another one each time that the user had what stands under
    /// `libraryKeyPrefix` erased, in whatever process: what was asked for before must not be stored
    /// after that. For a platform without such an erasure always the same.
    [[nodiscard]] virtual std::int64_t erasures() const { return 0; }
};

} // namespace morvellacinto::platform
