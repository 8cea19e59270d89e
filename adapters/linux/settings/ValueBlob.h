// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// The largest blob that `encodeValue` makes.
inline constexpr std::size_t maximumBlobBytes = std::size_t{256} * 1024 * 1024;
/// How many arrays and objects a value inside may be in; a service's answer is no deeper.
inline constexpr unsigned maximumBlobDepth = 512;

/// The bytes that a value is stored as, the same on every machine; docs/storage.md has the layout.
/// Throws std::invalid_argument when null or an instance stands at any depth, when it is deeper
/// than `maximumBlobDepth`, or when the blob would be larger than `maximumBlobBytes`.
[[nodiscard]] std::string encodeValue(const Value& value);

/// The value that was stored as `blob`, of the same kinds at every depth; nothing for bytes
/// that make no value. Takes memory in proportion to the blob, whatever is in it.
[[nodiscard]] std::optional<Value> decodeValue(std::string_view blob);

} // namespace morvellacinto::native
