#pragma once

#include <filesystem>
#include <string>

namespace morvellacinto::native {

/// What the kernel's files tell about network interfaces.
class InterfaceFacts {
public:
    /// `sysfs` is where the kernel's files are: /sys.
    explicit InterfaceFacts(std::filesystem::path sysfs);

    enum class State {
        usable,  ///< also when the kernel does not tell
        waiting, ///< for something from outside before it carries packets
        down,
    };
    [[nodiscard]] State stateOf(const std::string& interface) const;
    /// A mobile network's data interface.
    [[nodiscard]] bool isCellular(const std::string& interface) const;
    /// One that sends its packets through another interface.
    [[nodiscard]] bool isTunnel(const std::string& interface) const;

private:
    [[nodiscard]] std::filesystem::path fileOf(const std::string& interface,
                                               const char* file) const;
    [[nodiscard]] std::string deviceType(const std::string& interface) const;
    [[nodiscard]] int hardwareType(const std::string& interface) const;

    const std::filesystem::path sysfs_;
};

} // namespace morvellacinto::native
