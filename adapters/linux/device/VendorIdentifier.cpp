// SPDX-License-Identifier: MIT
#include "NativeDevice.h"

#include <algorithm>
#include <bit>
#include <string>
#include <systemd/sd-id128.h>

namespace morvellacinto::native {

namespace {

using Word = std::uint32_t;
constexpr std::size_t blockBytes = 64;

// From the fractions of the first 64 primes' cube roots.
constexpr std::array<Word, 64> constants{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

void digest(std::array<Word, 8>& state, const char* block) {
    std::array<Word, 64> w{};
    for (std::size_t i = 0; i < blockBytes; ++i) {
        w[i / 4] = w[i / 4] << 8U | static_cast<std::uint8_t>(block[i]);
    }
    for (std::size_t i = 16; i < w.size(); ++i) {
        const Word a = w[i - 15];
        const Word b = w[i - 2];
        w[i] = w[i - 16] + w[i - 7] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ a >> 3U) +
               (std::rotr(b, 17) ^ std::rotr(b, 19) ^ b >> 10U);
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t i = 0; i < w.size(); ++i) {
        const Word one = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                         ((e & f) ^ (~e & g)) + constants[i] + w[i];
        const Word two =
            (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g, g = f, f = e, e = d + one;
        d = c, c = b, b = a, a = one + two;
    }
    const std::array<Word, 8> round{a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); ++i) {
        state[i] += round[i];
    }
}

} // namespace

std::array<std::uint8_t, 32> sha256(std::string_view message) {
    std::string padded(message);
    padded += '\x80';
    padded.resize((padded.size() + 8 + blockBytes - 1) / blockBytes * blockBytes - 8);
    for (int shift = 56; shift >= 0; shift -= 8) {
        padded += static_cast<char>(std::uint64_t{message.size()} * 8 >> shift);
    }
    std::array<Word, 8> state{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                              0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    for (std::size_t at = 0; at < padded.size(); at += blockBytes) {
        digest(state, padded.data() + at);
    }
    std::array<std::uint8_t, 32> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(state[i / 4] >> (24 - i % 4 * 8));
    }
    return bytes;
}

Uuid vendorNumberOf(std::string_view bundleIdentifier) {
    const auto vendor = bundleIdentifier.substr(0, bundleIdentifier.rfind('.'));
    const auto digest = sha256("se.kovra.vendor " + std::string(vendor));
    Uuid::Bytes bytes{};
    std::copy_n(digest.begin(), bytes.size(), bytes.begin());
    return Uuid(bytes);
}

std::optional<Uuid> vendorIdentifier(const Uuid& vendorNumber) {
    const auto key = std::bit_cast<sd_id128_t>(vendorNumber.bytes());
    sd_id128_t identity{};
    if (sd_id128_get_machine_app_specific(key, &identity) < 0) {
        return std::nullopt;
    }
    return Uuid(std::bit_cast<Uuid::Bytes>(identity));
}

} // namespace morvellacinto::native
