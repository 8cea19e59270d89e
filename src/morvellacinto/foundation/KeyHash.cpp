// SPDX-License-Identifier: MIT
#include "morvellacinto/foundation/KeyHash.h"

#include <bit>
#include <chrono>
#include <cstring>
#include <random>

namespace morvellacinto {
namespace {

struct Seed {
    std::uint64_t low;
    std::uint64_t high;
};

Seed drawSeed() noexcept {
    try {
        std::random_device device;
        const auto draw = [&device] {
            return static_cast<std::uint64_t>(device()) << 32 |
                   static_cast<std::uint64_t>(device());
        };
        return {draw(), draw()};
    } catch (...) {
        // No entropy source: an address and a time are still unknown to whoever wrote the text.
        static const int anchor = 0;
        return {std::bit_cast<std::uintptr_t>(&anchor) * 0x9E3779B97F4A7C15U,
                static_cast<std::uint64_t>(
                    std::chrono::steady_clock::now().time_since_epoch().count())};
    }
}

struct State {
    std::uint64_t v0, v1, v2, v3;

    void round() noexcept {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }

    void absorb(std::uint64_t word) noexcept {
        v3 ^= word;
        round();
        v0 ^= word;
    }
};

} // namespace

std::uint64_t keyHash(std::string_view key) noexcept {
    static const Seed seed = drawSeed();
    State state{seed.low ^ 0x736F6D6570736575U, seed.high ^ 0x646F72616E646F6DU,
                seed.low ^ 0x6C7967656E657261U, seed.high ^ 0x7465646279746573U};
    const char* next = key.data();
    std::size_t left = key.size();
    for (; left >= 8; next += 8, left -= 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, next, 8);
        state.absorb(word);
    }
    std::uint64_t last = 0;
    if (left > 0) {
        std::memcpy(&last, next, left);
    }
    state.absorb(last | static_cast<std::uint64_t>(key.size()) << 56);
    state.v2 ^= 0xFF;
    state.round();
    state.round();
    state.round();
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

} // namespace morvellacinto
