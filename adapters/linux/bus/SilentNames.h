#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace morvellacinto::native {

/// Names on the bus that let a call time out: for two seconds they are not asked again, so that a
/// service that hangs costs one time-out and not one a question. Any thread.
class SilentNames {
public:
    void add(const std::string& name);
    [[nodiscard]] bool contains(const std::string& name);

private:
    std::mutex mutex_;
    std::map<std::string, std::chrono::steady_clock::time_point> until_;
};

} // namespace morvellacinto::native
