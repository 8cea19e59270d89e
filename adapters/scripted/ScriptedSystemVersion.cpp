#include "morvellacinto/scripted/ScriptedSystemVersion.h"

#include <charconv>
#include <utility>

namespace morvellacinto::scripted {

namespace {

// (17, 5) of "17.5.1"; a part that is missing or no number is 0.
std::pair<int, int> numbersOf(const std::string& version) {
    int major = 0;
    int minor = 0;
    const char* const end = version.data() + version.size();
    const auto [rest, error] = std::from_chars(version.data(), end, major);
    if (error == std::errc() && rest != end && *rest == '.') {
        std::from_chars(rest + 1, end, minor);
    }
    return {major, minor};
}

} // namespace

ScriptedSystemVersion::ScriptedSystemVersion(ScriptPointer script) : script_(std::move(script)) {}

bool ScriptedSystemVersion::isAtLeast(int major, int minor) const {
    return numbersOf(script_->lock()->systemVersion.value_or("")) >= std::pair(major, minor);
}

} // namespace morvellacinto::scripted
