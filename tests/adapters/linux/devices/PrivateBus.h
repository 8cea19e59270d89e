#pragma once

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include "bus/BusConnection.h"
#include "threads/StopSignal.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace morvellacinto::native {

/// A folder of the test's own that stands for "/".
class TemporaryRoot : public testing::TemporaryDirectory {
public:
    void write(const std::string& file, const std::string& text) const;
};

/// A bus daemon of the test's own that this process takes for the system bus, and the class under
/// test that asks it.
class PrivateBus {
public:
    PrivateBus();

    void stop() { daemon_.reset(); }
    /// Anew at the same address. We are let in by "EXTERNAL" only.
    void start(const std::string& authentication = "EXTERNAL");
    /// From now on it takes connections and says nothing.
    void freeze();
    [[nodiscard]] std::vector<std::string> told();

    StopSignal stopSignal;
    Bus bus;
    const TemporaryRoot folder;

private:
    const std::string address_ = "unix:path=" + (folder.path() / "socket").string();
    std::unique_ptr<testing::ChildProcess> daemon_;
    std::mutex mutex_;
    std::vector<std::string> told_;
};

} // namespace morvellacinto::native
