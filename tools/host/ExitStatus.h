#pragma once

#include <stdexcept>

namespace morvellacinto::host {

enum ExitStatus {
    success = 0,
    failed = 1,       ///< the completion brought an error
    wrongUsage = 2,   ///< also an unreadable file, or bad JSON in an argument or file
    noCompletion = 3, ///< none within --wait
    nothingFound = 4,
};

/// What the user did wrong, in one line; the program ends with `wrongUsage`.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace morvellacinto::host
