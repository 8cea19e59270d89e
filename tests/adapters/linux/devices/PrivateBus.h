#pragma once

#include "Child.h"

#include <filesystem>
#include <memory>
#include <string>

namespace morvellacinto::native {

/// A folder of the test's own, removed with what is in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    void write(const std::string& file, const std::string& text) const;

private:
    std::filesystem::path path_;
};

/// A bus daemon of the test's own that this process takes for the system bus. It can start the
/// services that are described in the folder `services`.
class PrivateBus {
public:
    PrivateBus();

    void stop() { daemon_.reset(); }
    /// Also after `stop`, at the same address.
    void start();
    [[nodiscard]] const Child& daemon() const { return *daemon_; }
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

private:
    const TemporaryFolder folder_;
    std::unique_ptr<Child> daemon_;
};

} // namespace morvellacinto::native
