#pragma once

#include "morvellacinto/foundation/Uuid.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace morvellacinto::native {

/// The digest that FIPS 180-4 calls SHA-256. It is here because OpenSSL's is gone at exit, which
/// may come while a worker derives an identifier.
[[nodiscard]] std::array<std::uint8_t, 32> sha256(std::string_view message);

/// The number that stands for the vendor of an application: for all of its bundle identifier but
/// the last component.
[[nodiscard]] Uuid vendorNumberOf(std::string_view bundleIdentifier);

/// The identifier that all applications of one vendor see on this machine. It is derived from the
/// machine's identity in a way that does not give that away; nothing on a machine without one.
[[nodiscard]] std::optional<Uuid> vendorIdentifier(const Uuid& vendorNumber);

} // namespace morvellacinto::native
