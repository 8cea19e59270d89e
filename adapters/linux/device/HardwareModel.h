#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace morvellacinto::native {

class Bus;

/// The machine's model: from the device tree, else from the firmware's tables, else as hostnamed
/// tells it, else the kernel's name of the processor family. `root` is the folder that the system's
/// files are looked up in.
[[nodiscard]] std::optional<std::string> findHardwareModel(Bus& bus,
                                                           const std::filesystem::path& root);

} // namespace morvellacinto::native
