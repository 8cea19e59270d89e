// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/Value.h"

#include <optional>
#include <string_view>

namespace morvellacinto {

/// The number that a decimal text means to people, whatever the locale of the process: the decimal
/// separator is ".", the grouping separator ",".
///
/// Accepted is an optional "-"; digits, either without groups or with a "," before every three
/// digits of the whole part; an optional "." and digits, where one side of the "." may be missing;
/// an optional "e" or "E" with an optional sign and digits. White space around it is ignored.
///
/// | text                       | gives                                                    |
/// |----------------------------|----------------------------------------------------------|
/// | `12`, ` 12 `, `012`        | the integer 12                                           |
/// | `-7`, `1,234`, `1,234,567` | the integers -7, 1234 and 1234567                        |
/// | `18446744073709551615`     | that integer; longer ones are doubles                    |
/// | `12.5`, `1,234.5`          | the doubles 12.5 and 1234.5                              |
/// | `.5`, `5.`                 | the doubles 0.5 and 5                                    |
/// | `1e3`, `1E+3`, `2.5e-1`    | the doubles 1000, 1000 and 0.25                          |
/// | `-0`                       | the double minus zero                                    |
/// | `1e-400`                   | the double 0                                             |
/// | `12,5`, `1234,567`, `,123` | nothing: the groups are misplaced                        |
/// | `1.234,5`, `1,234,`        | nothing: likewise                                        |
/// | `+5`, `--5`, `- 5`         | nothing: another sign                                    |
/// | `1e`, `1e+`, `e3`          | nothing: a part of the number is missing                 |
/// | ``, ` `, `-`, `.`, `-.`    | nothing: there are no digits                             |
/// | `1e400`                    | nothing: too large for a double                          |
/// | `5%`, `0x10`, `12.5abc`    | nothing: other text behind the number                    |
/// | `inf`, `nan`, `1 234`      | nothing                                                  |
[[nodiscard]] MORVELLACINTO_EXPORT std::optional<Value> numberFromText(std::string_view text);

} // namespace morvellacinto
