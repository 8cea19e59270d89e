#pragma once

#include "morvellacinto/platform/Device.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// The locale identifier of a POSIX locale name: codeset and modifier are dropped ("sv_SE.UTF-8"
/// gives "sv_SE"). C, POSIX and what is no locale name give "en_US_POSIX".
[[nodiscard]] std::string localeIdentifierOf(std::string_view localeName);

/// Device facts from the environment, the kernel and files of the system.
class NativeDevice final : public platform::Device {
public:
    /// Reads the environment, since the host may change it later while another thread would read
    /// it; opens no file. `bundle` is the host's own word. `root` is the folder that the system's
    /// files are looked up in.
    explicit NativeDevice(std::optional<std::string> bundle, std::filesystem::path root = "/");

    [[nodiscard]] std::optional<std::string> localeIdentifier() const override;
    [[nodiscard]] std::optional<std::string> systemVersion() const override;
    [[nodiscard]] std::optional<Uuid> identifierForVendor() const override;
    [[nodiscard]] std::optional<std::string> bundleIdentifier() const override;
    [[nodiscard]] float batteryLevel() const override;
    [[nodiscard]] std::int64_t batteryState() const override;
    [[nodiscard]] std::optional<std::string> hardwareMachine() const override;

private:
    const std::string locale_;
    const std::optional<std::string> bundle_;
    const std::filesystem::path root_;
};

} // namespace morvellacinto::native
