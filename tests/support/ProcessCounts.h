// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <fstream>

namespace morvellacinto::testing {

/// Threads of this process. Not by listing /proc/self/task, which skips entries while threads end.
inline int threadCount() {
    std::ifstream status("/proc/self/status");
    std::string word;
    int count = 0;
    while (status >> word && word != "Threads:") {
    }
    status >> count;
    return count;
}

inline std::ptrdiff_t descriptorCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

} // namespace morvellacinto::testing
