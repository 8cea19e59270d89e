// SPDX-License-Identifier: MIT
#include "Hardware.h"

#include "basics/SystemFiles.h"
#include "bus/BusValues.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace morvellacinto::native {

namespace {

// By UPower's number: a battery that waits on the charger is charging.
constexpr std::int64_t states[] = {0, 2, 1, 1, 3, 2, 1};

Object askFor(Bus& bus, const char* service, const char* path, const char* interface) {
    return objectAt(BusConnection(bus).call(readProperties(service, path, interface)).body, 0);
}

// The first line, which in the device tree ends with a zero.
std::optional<std::string> firstLine(const std::filesystem::path& path) {
    std::string text = readSmallFile(path).value_or("");
    text.resize(std::min(text.find_first_of(std::string_view("\0\r\n", 3)), text.size()));
    text.resize(text.find_last_not_of(" \t") + 1);
    return text.empty() ? std::nullopt : std::optional(visibleText(text));
}

} // namespace

Battery batteryIn(const Object& displayDevice) {
    const auto percentage = doubleMember(displayDevice, "Percentage");
    if (!boolMember(displayDevice, "IsPresent").value_or(false) || !percentage ||
        !(*percentage >= 0 && *percentage <= 100)) {
        return {};
    }
    const auto state = integerMember(displayDevice, "State").value_or(0);
    const bool isKnown = state >= 0 && state < std::ssize(states);
    return {static_cast<float>(*percentage / 100), isKnown ? states[state] : 0};
}

Battery readBattery(Bus& bus) {
    return batteryIn(askFor(bus, "org.freedesktop.UPower",
                            "/org/freedesktop/UPower/devices/DisplayDevice",
                            "org.freedesktop.UPower.Device"));
}

std::optional<std::string> findHardwareModel(Bus& bus, const std::filesystem::path& root) {
    for (const char* path : {"proc/device-tree/model", "sys/devices/virtual/dmi/id/product_name"}) {
        if (auto model = firstLine(root / path)) {
            return model;
        }
    }
    const Object host = askFor(bus, "org.freedesktop.hostname1", "/org/freedesktop/hostname1",
                               "org.freedesktop.hostname1");
    return textMember(host, "HardwareModel");
}

} // namespace morvellacinto::native
