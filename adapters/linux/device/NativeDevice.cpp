// SPDX-License-Identifier: MIT
#include "NativeDevice.h"

#include "basics/SystemFiles.h"

#include <sys/utsname.h>

namespace morvellacinto::native {

namespace {

// Long enough for level and state of one payload.
constexpr std::chrono::seconds batteryHolds(1);

std::string nonEmptyVariable(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (std::string value = environment(name); !value.empty()) {
            return value;
        }
    }
    return {};
}

std::string withoutQuotes(std::string text) {
    if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
        text.back() == text.front()) {
        text.pop_back();
        text.erase(0, 1);
    }
    return text;
}

} // namespace

std::string localeIdentifierOf(std::string_view localeName) {
    const std::string_view name = localeName.substr(0, localeName.find_first_of(".@"));
    constexpr std::string_view allowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
    if (name.empty() || name == "C" || name == "POSIX" ||
        name.find_first_not_of(allowed) != std::string_view::npos) {
        return "en_US_POSIX";
    }
    return std::string(name);
}

std::optional<std::string> findBundleIdentifier(std::optional<std::string> chosen,
                                                const std::filesystem::path& root) {
    if (chosen && !chosen->empty()) {
        return chosen;
    }
    if (auto known = asciiWord(environment("FLATPAK_ID"))) {
        return known;
    }
    return asciiWord(readKey(root / ".flatpak-info", "Application", "name").value_or(""));
}

NativeDevice::NativeDevice(std::optional<std::string> bundle, Bus& bus, KeptValues kept,
                           std::filesystem::path root)
    : locale_(localeIdentifierOf(nonEmptyVariable({"LC_ALL", "LC_MESSAGES", "LANG"}))),
      bundle_(std::move(bundle)), root_(std::move(root)), bus_(bus),
      keptIdentifier_(std::move(kept), keptVendorIdentifier) {}

std::optional<std::string> NativeDevice::systemVersion() const {
    for (const char* path : {"etc/os-release", "usr/lib/os-release"}) {
        const auto value = readKey(root_ / path, "", "VERSION_ID");
        if (auto version = asciiWord(withoutQuotes(value.value_or("")))) {
            return version;
        }
    }
    // Distributions that roll on have no version; the kernel always has one.
    utsname names{};
    return uname(&names) == 0 ? asciiWord(names.release) : std::nullopt;
}

std::optional<Uuid> NativeDevice::identifierForVendor() const {
    const auto derived = vendorIdentifier(vendorNumberOf(bundle_.value_or("")));
    return derived ? derived : keptIdentifier_.get();
}

std::optional<std::string> NativeDevice::hardwareMachine() const {
    std::unique_lock lock(mutex_);
    if (!model_) {
        lock.unlock();
        auto model = findHardwareModel(bus_, root_);
        lock.lock();
        model_ = model_ ? model_ : std::move(model);
    }
    utsname names{};
    return model_ || uname(&names) != 0 ? model_ : visibleText(names.machine);
}

Battery NativeDevice::battery() const {
    const auto now = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    if (!battery_ || now - batteryRead_ >= batteryHolds) {
        lock.unlock();
        const Battery battery = readBattery(bus_);
        lock.lock();
        battery_ = battery;
        batteryRead_ = now;
    }
    return *battery_;
}

} // namespace morvellacinto::native
