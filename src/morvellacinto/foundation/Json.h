// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/TextArgument.h"
#include "morvellacinto/foundation/Value.h"

#include <optional>
#include <stdexcept>
#include <string>

namespace morvellacinto {

/// Nesting deeper than this is no JSON.
inline constexpr std::size_t maximumJsonDepth = 512;

/// Thrown for a value that JSON cannot hold; the message says which and under which member.
class MORVELLACINTO_EXPORT JsonWriteError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
    ~JsonWriteError() override;
};

/// A `JsonWriteError` about text that is not valid UTF-8.
class MORVELLACINTO_EXPORT JsonTextError : public JsonWriteError {
public:
    using JsonWriteError::JsonWriteError;
    ~JsonTextError() override;
};

/// Why a text is no JSON, and where.
struct JsonProblem {
    std::size_t line = 0;   ///< from 1
    std::size_t column = 0; ///< from 1, in bytes
    std::string reason;
};

/// Reads RFC 8259 text in UTF-8; a byte-order mark is skipped.
///
/// Gives nothing, and tells `problem` why, when the text is no JSON: the top level must be an
/// object or an array, nested at most `maximumJsonDepth` levels, with nothing but white space
/// behind it. Lone surrogates, invalid UTF-8 and numbers too large for a double are no JSON; a
/// number too small for one is 0. Integers are exact over 64 bits signed and unsigned and doubles
/// beyond. Of equal keys the last one's value stands in the first one's place. Time is linear in
/// the text; nothing but std::bad_alloc is thrown.
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<Value> readJson(TextArgument text,
                                                                 JsonProblem* problem = nullptr);

/// Compact JSON text in UTF-8 of an object or array, members in their order.
///
/// Floats and doubles appear as the shortest text that reads back to the same number of their
/// width, below 1e17 without an exponent. Throws JsonWriteError for anything else at the top, at
/// any depth for not-a-number, infinity, a date, bytes, an instance or invalid UTF-8 (a
/// JsonTextError), and for more than `maximumJsonDepth` levels.
[[nodiscard]] MORVELLACINTO_EXPORT std::string writeJson(const Value& value);

/// As `writeJson`, but any value that JSON can hold may stand at the top.
[[nodiscard]] MORVELLACINTO_EXPORT std::string writeJsonFragment(const Value& value);

} // namespace morvellacinto
