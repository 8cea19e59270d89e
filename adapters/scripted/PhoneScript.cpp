// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/PhoneScript.h"

#include <charconv>

namespace morvellacinto::scripted {

bool PhoneScript::isAtLeast(int major, int minor) const {
    std::pair<int, int> own; // (17, 5) of "17.5.1"; a part that is missing or no number is 0
    if (systemVersion.has_value()) {
        const char* const end = systemVersion->data() + systemVersion->size();
        const auto [rest, error] = std::from_chars(systemVersion->data(), end, own.first);
        if (error == std::errc() && rest != end && *rest == '.') {
            std::from_chars(rest + 1, end, own.second);
        }
    }
    return own >= std::pair(major, minor);
}

} // namespace morvellacinto::scripted
