#pragma once

#include "BusCall.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// The arguments of a message, from its start: numbers, booleans and texts as they are, object
/// paths and signatures as texts, `ay` as bytes, structures as arrays, dictionaries with text keys
/// as objects, variants as what they hold, anything else as null. A message that cannot be read
/// gives what could be read of it.
[[nodiscard]] Array valuesIn(sd_bus_message* message);

/// The call that reads all properties of one interface of an object.
[[nodiscard]] BusCall readProperties(std::string destination, std::string path,
                                     std::string_view interface);
/// The properties that came back, or none at all.
[[nodiscard]] Object propertiesIn(const BusReply& reply);

// Members of a service's answer: nothing when a member is missing or of another type.
[[nodiscard]] std::optional<std::string> textMember(const Object& object, std::string_view key);
/// As `textMember`, but an empty text counts as missing.
[[nodiscard]] std::optional<std::string> nonEmptyMember(const Object& object, std::string_view key);
[[nodiscard]] std::optional<std::int64_t> integerMember(const Object& object, std::string_view key);
[[nodiscard]] std::optional<double> doubleMember(const Object& object, std::string_view key);
[[nodiscard]] std::optional<bool> boolMember(const Object& object, std::string_view key);
/// An object path that leads somewhere: "/" stands for none.
[[nodiscard]] std::optional<std::string> pathMember(const Object& object, std::string_view key);

} // namespace morvellacinto::native
