// SPDX-License-Identifier: MIT
#pragma once

#include "common/CommandLine.h"
#include "common/Input.h"

namespace morvellacinto::host {

using tools::print;
using tools::readFile;
using tools::readObject;
using tools::readValue;
using tools::UsageError;

enum ExitStatus {
    success = 0,
    failed = 1, ///< the completion brought an error
    wrongUsage =
        tools::wrongUsageStatus, ///< also an unreadable file, or bad JSON in an argument or file
    noCompletion = 3,            ///< none within --wait
    nothingFound = 4,
};

} // namespace morvellacinto::host
