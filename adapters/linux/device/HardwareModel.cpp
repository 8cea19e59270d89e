#include "HardwareModel.h"

#include "basics/VisibleText.h"
#include "bus/Bus.h"
#include "bus/BusValues.h"

#include <algorithm>
#include <fstream>
#include <string_view>
#include <sys/utsname.h>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr std::size_t maximumLength = 256;

// The first line, which in the device tree ends with a zero. A file of such a kind is short.
std::optional<std::string> firstLine(const std::filesystem::path& path) {
    std::string text(maximumLength, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    text.resize(std::min(text.find_first_of(std::string_view("\0\r\n", 3)), text.size()));
    text.resize(text.find_last_not_of(" \t") + 1);
    return text.empty() ? std::nullopt : std::optional(visibleText(text));
}

} // namespace

HardwareModel::HardwareModel(Bus& bus, std::filesystem::path root)
    : bus_(bus), root_(std::move(root)) {}

std::optional<std::string> HardwareModel::text() const {
    std::call_once(found_, [this] { text_ = find(); });
    return text_;
}

std::optional<std::string> HardwareModel::find() const {
    for (const char* path : {"proc/device-tree/model", "sys/devices/virtual/dmi/id/product_name"}) {
        if (auto model = firstLine(root_ / path)) {
            return model;
        }
    }
    const Object host = propertiesIn(bus_.call(readProperties(
        "org.freedesktop.hostname1", "/org/freedesktop/hostname1", "org.freedesktop.hostname1")));
    if (auto model = nonEmptyMember(host, "HardwareModel")) {
        return model;
    }
    utsname names{};
    return uname(&names) == 0 ? std::optional(visibleText(names.machine)) : std::nullopt;
}

} // namespace morvellacinto::native
