#include "InterfaceFacts.h"

#include "basics/KeyFile.h"

#include <fstream>
#include <utility>

namespace morvellacinto::native {

namespace {

// Of <linux/if_arp.h>, which cannot be included beside <net/if.h>.
constexpr int hardwareRawIp = 519;
constexpr int hardwareNone = 65534;

} // namespace

InterfaceFacts::InterfaceFacts(std::filesystem::path sysfs) : sysfs_(std::move(sysfs)) {}

InterfaceFacts::State InterfaceFacts::stateOf(const std::string& interface) const {
    std::string state;
    std::ifstream(fileOf(interface, "operstate")) >> state;
    if (state.empty() || state == "up" || state == "unknown") {
        return State::usable;
    }
    return state == "dormant" ? State::waiting : State::down;
}

bool InterfaceFacts::isCellular(const std::string& interface) const {
    const std::string type = deviceType(interface);
    if (!type.empty()) {
        return type == "wwan";
    }
    if (fileExists(fileOf(interface, "wireless")) || fileExists(fileOf(interface, "phy80211"))) {
        return false;
    }
    return hardwareType(interface) == hardwareRawIp || interface.starts_with("wwan") ||
           interface.starts_with("rmnet");
}

bool InterfaceFacts::isTunnel(const std::string& interface) const {
    return !isCellular(interface) &&
           (hardwareType(interface) == hardwareNone || fileExists(fileOf(interface, "tun_flags")));
}

std::filesystem::path InterfaceFacts::fileOf(const std::string& interface, const char* file) const {
    return sysfs_ / "class/net" / interface / file;
}

std::string InterfaceFacts::deviceType(const std::string& interface) const {
    return readKey(fileOf(interface, "uevent"), "", "DEVTYPE").value_or("");
}

int InterfaceFacts::hardwareType(const std::string& interface) const {
    int type = -1;
    std::ifstream(fileOf(interface, "type")) >> type;
    return type;
}

} // namespace morvellacinto::native
