#include "morvellacinto/settings/KRSettingsManager.h"

#include "morvellacinto/platform/Guarded.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/UserDefaults.h"

namespace morvellacinto::KRSettingsManager {
namespace {

constexpr std::string_view keyPrefix = "se.kovra.v5.";
constexpr std::string_view absentKeyText = "(null)";
constexpr std::string_view storingFailed = "storing failed";
constexpr std::string_view removingFailed = "removing failed";

} // namespace

std::string fullKey(std::optional<std::string_view> key) {
    const std::string_view text = key.value_or(absentKeyText);
    std::string full;
    full.reserve(keyPrefix.size() + text.size());
    full += keyPrefix;
    full += text;
    return full;
}

bool setLocalSetting(std::optional<Value> setting, std::optional<std::string_view> key) {
    const auto platform = platform::current();
    if (!setting || !key) {
        return false;
    }
    bool stored = false;
    platform::guarded(platform->developerLog(), storingFailed, [&] {
        if (setting->isNull()) {
            return;
        }
        platform->standardUserDefaults().setObjectForKey(*std::move(setting), fullKey(key));
        stored = platform->standardUserDefaults().synchronize();
    });
    return stored;
}

bool removeLocalSettingForKey(std::optional<std::string_view> key) {
    const auto platform = platform::current();
    bool removed = true;
    platform::guarded(platform->developerLog(), removingFailed, [&] {
        const std::string full = fullKey(key);
        if (!platform->standardUserDefaults().objectForKey(full)) {
            return;
        }
        platform->standardUserDefaults().removeObjectForKey(full);
        removed = platform->standardUserDefaults().synchronize();
    });
    return removed;
}

std::optional<Value> localSettingForKey(std::optional<std::string_view> key) {
    return platform::current()->standardUserDefaults().objectForKey(fullKey(key));
}

} // namespace morvellacinto::KRSettingsManager
