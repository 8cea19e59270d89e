// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

namespace morvellacinto::bench {

/// An answer of the service's shape, of at least `size` bytes: lists of short tags, some numbers.
[[nodiscard]] std::string answerText(std::size_t size);
/// `count` doubles of full precision.
[[nodiscard]] std::string numbersText(std::size_t count);
/// An object of `count` members with short keys.
[[nodiscard]] std::string membersText(std::size_t count);
/// An object of 2 to the power of `bits` members, whose keys collide under the hash that multiplies
/// by 31.
[[nodiscard]] std::string collidingMembersText(unsigned bits);
/// The body of a geo-tags upload.
[[nodiscard]] std::string payloadText();

} // namespace morvellacinto::bench
