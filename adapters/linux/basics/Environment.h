#pragma once

#include <cstdlib>
#include <string>

namespace morvellacinto::native {

/// The variable's text, empty when it is not set. Safe on any thread, as long as the host does not
/// change its environment meanwhile.
inline std::string environment(const char* name) {
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : "";
}

} // namespace morvellacinto::native
