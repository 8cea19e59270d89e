#include "HardwareModel.h"

#include "basics/KeyFile.h"
#include "basics/VisibleText.h"
#include "bus/Bus.h"
#include "bus/BusValues.h"

#include <algorithm>
#include <string_view>
#include <sys/utsname.h>

namespace morvellacinto::native {

namespace {

// The first line, which in the device tree ends with a zero.
std::optional<std::string> firstLine(const std::filesystem::path& path) {
    std::string text = readSmallFile(path).value_or("");
    text.resize(std::min(text.find_first_of(std::string_view("\0\r\n", 3)), text.size()));
    text.resize(text.find_last_not_of(" \t") + 1);
    return text.empty() ? std::nullopt : std::optional(visibleText(text));
}

} // namespace

std::optional<std::string> findHardwareModel(Bus& bus, const std::filesystem::path& root) {
    for (const char* path : {"proc/device-tree/model", "sys/devices/virtual/dmi/id/product_name"}) {
        if (auto model = firstLine(root / path)) {
            return model;
        }
    }
    const Object host = propertiesIn(bus.call(readProperties(
        "org.freedesktop.hostname1", "/org/freedesktop/hostname1", "org.freedesktop.hostname1")));
    if (auto model = nonEmptyMember(host, "HardwareModel")) {
        return model;
    }
    utsname names{};
    return uname(&names) == 0 ? std::optional(visibleText(names.machine)) : std::nullopt;
}

} // namespace morvellacinto::native
