// SPDX-License-Identifier: MIT
#pragma once

#include "ExitStatus.h"
#include "Options.h"

#include "morvellacinto/native/NativePlatform.h"

namespace morvellacinto::host {

/// Runs the command once, with the platform installed and `machine` running its main queue. The
/// result goes to standard output, one line. Throws UsageError for bad files and arguments.
[[nodiscard]] ExitStatus runCommand(const Options& options, native::NativePlatform& machine);

/// The commands on the settings store.
[[nodiscard]] ExitStatus runSettingsCommand(const Options& options,
                                            native::NativePlatform& machine);

/// Standard error, as one line of JSON.
void printError(const KRError& error);

/// Says what was not found.
[[nodiscard]] ExitStatus missing(const std::string& sentence);

} // namespace morvellacinto::host
