#pragma once

#include <chrono>
#include <cstdlib>

namespace morvellacinto::testing {

/// True in `./dev attack`, which repeats ten times as often and holds times to their promise.
inline bool isAttack() { return std::getenv("MORVELLACINTO_ATTACK") != nullptr; }

inline int attackRounds(int usual) { return isAttack() ? usual * 10 : usual; }

/// What a shutdown may take: its promise in an attack, else far more for the sake of busy machines,
/// and yet far less than every time-out of a transfer.
inline std::chrono::milliseconds shutdownLimit() {
    return std::chrono::milliseconds(isAttack() ? 250 : 3000);
}

} // namespace morvellacinto::testing
