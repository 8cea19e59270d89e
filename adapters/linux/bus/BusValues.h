// SPDX-License-Identifier: MIT
#pragma once

#include "BusConnection.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// The arguments of a message, from its start: `i`, `u`, `t`, doubles, booleans and texts as they
/// are, object paths as texts, `ay` as bytes, dictionaries with text keys as objects, structs as
/// arrays, variants as what they hold, anything else as null. A message that cannot be read gives
/// what could be read of it.
[[nodiscard]] Array valuesIn(sd_bus_message* message);

/// The call that reads all properties of one interface of an object.
[[nodiscard]] BusCall readProperties(std::string destination, std::string path,
                                     std::string interface);

// Elements and members of a service's answer: empty when missing or of another type.
[[nodiscard]] std::string textAt(const Array& values, std::size_t index);
[[nodiscard]] Object objectAt(const Array& values, std::size_t index);
[[nodiscard]] Object objectMember(const Object& object, std::string_view key);
/// An empty text counts as missing.
[[nodiscard]] std::optional<std::string> textMember(const Object& object, std::string_view key);
/// An object path that leads somewhere: "/" stands for none.
[[nodiscard]] std::optional<std::string> pathMember(const Object& object, std::string_view key);
[[nodiscard]] std::optional<std::int64_t> integerMember(const Object& object, std::string_view key);
[[nodiscard]] std::optional<double> doubleMember(const Object& object, std::string_view key);
[[nodiscard]] std::optional<bool> boolMember(const Object& object, std::string_view key);

} // namespace morvellacinto::native
