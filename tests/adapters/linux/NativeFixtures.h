#pragma once

#include <morvellacinto/native/NativePlatform.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <poll.h>
#include <string>

namespace morvellacinto::native {

/// More than anything here takes on the busiest machine.
inline constexpr std::chrono::seconds generous(30);

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "native-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// Drives the platform's main queue as a host's loop does, until `done` holds.
inline bool pumpUntil(NativePlatform& platform, const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + generous;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        // `done` may come true without a block: look again soon.
        pollfd wanted{platform.descriptor(), POLLIN, 0};
        if (poll(&wanted, 1, 1) == 1) {
            platform.drain();
        }
    }
    return true;
}

} // namespace morvellacinto::native
