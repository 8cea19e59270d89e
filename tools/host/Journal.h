// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Diagnostics.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>

namespace morvellacinto::host {

/// Writes what the library tells of its work: as JSON lines on standard error, and as a file in the
/// Trace Event format, which browsers' trace viewers open. Any thread.
class Journal {
public:
    /// Throws UsageError when `traceFile` cannot be written.
    Journal(bool isVerbose, const std::optional<std::filesystem::path>& traceFile);
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;
    /// Completes the file.
    ~Journal();

    void write(const platform::Diagnostic& record);

private:
    using Microseconds = std::chrono::microseconds;

    void addSpan(std::string_view name, Microseconds begin, Microseconds end);
    void addEvent(const Object& event);

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    const bool isVerbose_;
    std::mutex mutex_;
    std::ofstream trace_;
    bool isFirst_ = true;
};

} // namespace morvellacinto::host
