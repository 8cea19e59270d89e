#pragma once

#include <filesystem>
#include <string>

namespace morvellacinto::native {

/// What the kernel's files tell about network interfaces.
class InterfaceFacts {
public:
    /// `root` is the folder that the kernel's files are looked up in.
    explicit InterfaceFacts(std::filesystem::path root);

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

    const std::filesystem::path root_;
};

} // namespace morvellacinto::native
