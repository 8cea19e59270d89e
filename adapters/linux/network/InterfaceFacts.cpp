#include "InterfaceFacts.h"

#include "basics/SystemFiles.h"

namespace morvellacinto::native {

namespace {
// Of <linux/if_arp.h>.
constexpr std::string_view hardwareRawIp = "519\n";
constexpr std::string_view hardwareNone = "65534\n";
} // namespace

InterfaceFacts::InterfaceFacts(std::filesystem::path root) : root_(std::move(root)) {}

InterfaceFacts::State InterfaceFacts::stateOf(const std::string& interface) const {
    const auto state = readSmallFile(fileOf(interface, "operstate"));
    if (!state || *state == "up\n" || *state == "unknown\n") {
        return State::usable;
    }
    return *state == "dormant\n" ? State::waiting : State::down;
}

bool InterfaceFacts::isCellular(const std::string& interface) const {
    if (const auto type = readKey(fileOf(interface, "uevent"), "", "DEVTYPE")) {
        return type == "wwan";
    }
    if (fileExists(fileOf(interface, "wireless")) || fileExists(fileOf(interface, "phy80211"))) {
        return false;
    }
    return readSmallFile(fileOf(interface, "type")) == hardwareRawIp ||
           interface.starts_with("wwan") || interface.starts_with("rmnet");
}

bool InterfaceFacts::isTunnel(const std::string& interface) const {
    return !isCellular(interface) && (readSmallFile(fileOf(interface, "type")) == hardwareNone ||
                                      fileExists(fileOf(interface, "tun_flags")));
}

std::filesystem::path InterfaceFacts::fileOf(const std::string& interface, const char* file) const {
    return root_ / "sys/class/net" / interface / file;
}

} // namespace morvellacinto::native
