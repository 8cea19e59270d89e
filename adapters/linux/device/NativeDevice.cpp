#include "NativeDevice.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sys/utsname.h>
#include <utility>

namespace morvellacinto::native {

namespace {

// Far above what either of the files read here holds.
constexpr std::size_t maximumLines = 1000;

std::string nonEmptyVariable(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

bool isPrintableAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

std::optional<std::string> usable(std::string text) {
    if (text.empty() || !isPrintableAscii(text)) {
        return std::nullopt;
    }
    return text;
}

// The value of `key` in a file of lines KEY=VALUE; with a `section`, in that part of the file that
// the line [section] heads.
std::optional<std::string> readKey(const std::filesystem::path& path, std::string_view section,
                                   std::string_view key) {
    std::ifstream file(path);
    bool inSection = section.empty();
    std::string line;
    for (std::size_t count = 0; count < maximumLines && std::getline(file, line); ++count) {
        if (line.starts_with('[')) {
            inSection = line == "[" + std::string(section) + "]";
        } else if (inSection && line.starts_with(key) && line.size() > key.size() &&
                   line[key.size()] == '=') {
            return line.substr(key.size() + 1);
        }
    }
    return std::nullopt;
}

std::string withoutQuotes(std::string text) {
    if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
        text.back() == text.front()) {
        text.pop_back();
        text.erase(0, 1);
    }
    return text;
}

std::optional<utsname> kernelNames() {
    utsname names{};
    return uname(&names) == 0 ? std::optional(names) : std::nullopt;
}

} // namespace

std::string localeIdentifierOf(std::string_view localeName) {
    const std::string_view name = localeName.substr(0, localeName.find_first_of(".@"));
    const bool wellFormed = std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-';
    });
    if (name.empty() || name == "C" || name == "POSIX" || !wellFormed) {
        return "en_US_POSIX";
    }
    return std::string(name);
}

NativeDevice::NativeDevice(std::optional<std::string> bundle, std::filesystem::path root)
    : locale_(localeIdentifierOf(nonEmptyVariable({"LC_ALL", "LC_MESSAGES", "LANG"}))),
      bundle_(bundle.has_value() && !bundle->empty() ? std::move(bundle)
                                                     : usable(nonEmptyVariable({"FLATPAK_ID"}))),
      root_(std::move(root)) {}

std::optional<std::string> NativeDevice::localeIdentifier() const { return locale_; }

std::optional<std::string> NativeDevice::systemVersion() const {
    for (const char* path : {"etc/os-release", "usr/lib/os-release"}) {
        if (auto value = readKey(root_ / path, "", "VERSION_ID")) {
            if (auto version = usable(withoutQuotes(std::move(*value)))) {
                return version;
            }
        }
    }
    // Distributions that roll on have no version; the kernel always has one.
    const auto names = kernelNames();
    return names ? usable(names->release) : std::nullopt;
}

std::optional<Uuid> NativeDevice::identifierForVendor() const { return std::nullopt; }

std::optional<std::string> NativeDevice::bundleIdentifier() const {
    if (bundle_) {
        return bundle_;
    }
    auto name = readKey(root_ / ".flatpak-info", "Application", "name");
    return name ? usable(std::move(*name)) : std::nullopt;
}

float NativeDevice::batteryLevel() const { return -1.0F; }

std::int64_t NativeDevice::batteryState() const { return 0; }

std::optional<std::string> NativeDevice::hardwareMachine() const {
    const auto names = kernelNames();
    return names ? usable(names->machine) : std::nullopt;
}

} // namespace morvellacinto::native
