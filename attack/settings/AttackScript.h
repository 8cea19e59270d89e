#pragma once

#include "morvellacinto/foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace morvellacinto::native {

// What a process under attack does: operation after operation on keys of its own, each flushed
// before the next and then acknowledged with a line; the state after each can be told from its
// number alone.

inline constexpr std::int64_t attackKeys = 4;

inline std::string attackKey(int writer, std::int64_t key) {
    return "writer" + std::to_string(writer) + ".key" + std::to_string(key);
}

/// What operation `number` stores under key `number % attackKeys`; nothing: it removes.
inline std::optional<Value> attackValue(int writer, std::int64_t number) {
    if (number % 7 == 3) {
        return std::nullopt;
    }
    const auto length = static_cast<std::size_t>((number * 7919) % 9000);
    const char letter = static_cast<char>('a' + number % 26);
    return Object{{"writer", writer}, {"number", number}, {"text", std::string(length, letter)}};
}

/// What a key holds once the first `operations` have been done.
inline std::optional<Value> attackState(int writer, std::int64_t operations, std::int64_t key) {
    for (std::int64_t number = operations - 1; number >= 0; --number) {
        if (number % attackKeys == key) {
            return attackValue(writer, number);
        }
    }
    return std::nullopt;
}

} // namespace morvellacinto::native
