// SPDX-License-Identifier: MIT
#pragma once

// Read NativeDevice, Hardware, then VendorIdentifier.cpp.

#include "Hardware.h"
#include "KeptValues.h"

#include "morvellacinto/platform/Device.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

/// The locale identifier of a POSIX locale name: codeset and modifier are dropped ("sv_SE.UTF-8"
/// gives "sv_SE"). C, POSIX and what is no locale name give "en_US_POSIX".
[[nodiscard]] std::string localeIdentifierOf(std::string_view localeName);

/// The application's identifier: the host's own word, else Flatpak's. Nothing outside of Flatpak
/// when the host chose none, or an empty one. `root` is the folder that the system's files are
/// looked up in.
[[nodiscard]] std::optional<std::string>
findBundleIdentifier(std::optional<std::string> chosen, const std::filesystem::path& root = "/");

/// The digest that FIPS 180-4 calls SHA-256. It is here because OpenSSL's is gone at exit, which
/// may come while a worker derives an identifier.
[[nodiscard]] std::array<std::uint8_t, 32> sha256(std::string_view message);

/// The number that stands for the vendor of an application: for all of its bundle identifier but
/// the last component.
[[nodiscard]] Uuid vendorNumberOf(std::string_view bundleIdentifier);

/// The identifier that all applications of one vendor see on this machine. It is derived from the
/// machine's identity in a way that does not give that away; nothing on a machine without one.
[[nodiscard]] std::optional<Uuid> vendorIdentifier(const Uuid& vendorNumber);

/// Device facts from the environment, the kernel, files of the system and services on the bus.
class NativeDevice final : public platform::Device {
public:
    /// Reads the environment, since the host may change it later while another thread would read
    /// it; opens no file. `bus` must outlive this. `root` is the folder that the system's files
    /// are looked up in.
    NativeDevice(std::optional<std::string> bundle, Bus& bus, KeptValues kept,
                 std::filesystem::path root = "/");

    [[nodiscard]] std::optional<std::string> localeIdentifier() const override { return locale_; }
    [[nodiscard]] std::optional<std::string> systemVersion() const override;
    /// Without an identity of the machine, random and kept, for this application alone.
    [[nodiscard]] std::optional<Uuid> identifierForVendor() const override;
    [[nodiscard]] std::optional<std::string> bundleIdentifier() const override { return bundle_; }
    [[nodiscard]] float batteryLevel() const override { return battery().level; }
    [[nodiscard]] std::int64_t batteryState() const override { return battery().state; }
    /// The processor family's name while the model cannot be read; each question tries again.
    [[nodiscard]] std::optional<std::string> hardwareMachine() const override;

private:
    [[nodiscard]] Battery battery() const;

    const std::string locale_;
    const std::optional<std::string> bundle_;
    const std::filesystem::path root_;
    Bus& bus_;
    mutable KeptUuid keptIdentifier_;
    // No lock is held while the bus is asked.
    mutable std::mutex mutex_;
    mutable std::optional<std::string> model_;
    mutable std::optional<Battery> battery_;
    mutable std::chrono::steady_clock::time_point batteryRead_;
};

} // namespace morvellacinto::native
