#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

namespace morvellacinto::native {

class Bus;

/// The machine's model: from the device tree, else from the firmware's tables, else as hostnamed
/// tells it, else the kernel's name of the processor family.
class HardwareModel {
public:
    /// `bus` must outlive this; `root` is the folder that the system's files are looked up in.
    HardwareModel(Bus& bus, std::filesystem::path root);

    /// The same on every call. The first may wait for one time-out of the bus.
    [[nodiscard]] std::optional<std::string> text() const;

private:
    [[nodiscard]] std::optional<std::string> find() const;

    Bus& bus_;
    const std::filesystem::path root_;
    mutable std::once_flag found_;
    mutable std::optional<std::string> text_;
};

} // namespace morvellacinto::native
