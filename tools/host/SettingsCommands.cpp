// SPDX-License-Identifier: MIT
#include "Commands.h"

#include "ValueText.h"

#include "morvellacinto/platform/Clock.h"
#include "morvellacinto/settings/KRSettingsManager.h"

#include <algorithm>
#include <array>

namespace morvellacinto::host {
namespace {

// In the order of native::UploadConsent.
constexpr std::array<const char*, 3> decisions{"allow", "withhold", "ask"};

ExitStatus stored(bool isStored, const char* otherwise = "the setting was not changed") {
    if (isStored) {
        return success;
    }
    printError({"morvellacinto.host", 1, {{KRError::messageKey, otherwise}}});
    return failed;
}

ExitStatus showOrSetConsent(const std::string& decision, native::NativePlatform& machine) {
    if (decision.empty()) {
        print(decisions.at(static_cast<std::size_t>(machine.uploadConsent())));
        return success;
    }
    const auto* const chosen = std::find(decisions.begin(), decisions.end(), decision);
    return stored(
        machine.setUploadConsent(static_cast<native::UploadConsent>(chosen - decisions.begin())));
}

// The library's own settings, under their short keys.
Object ownSettings(native::NativePlatform& machine) {
    const std::string prefix = KRSettingsManager::fullKey("");
    Object own;
    for (const Object::Member& setting : machine.storedSettings()) {
        if (setting.key().starts_with(prefix)) {
            own.set(setting.key().substr(prefix.size()), setting.value);
        }
    }
    return own;
}

} // namespace

ExitStatus runSettingsCommand(const Options& options, native::NativePlatform& machine) {
    switch (options.command) {
    case Command::consent:
        return showOrSetConsent(options.consent, machine);
    case Command::erase:
        return stored(machine.eraseStoredData(), "not everything could be erased yet");
    case Command::settingsGet: {
        const auto found = KRSettingsManager::localSettingForKey(options.key);
        if (!found) {
            return missing("there is no setting \"" + options.key + "\"");
        }
        print(valueText(*found));
        return success;
    }
    case Command::settingsSet:
        return stored(KRSettingsManager::setLocalSetting(
            readValue(options.json, "\"" + options.json + "\""), options.key));
    case Command::settingsSetDate: {
        const double now = machine.clock().now().secondsSinceReference;
        return stored(KRSettingsManager::setLocalSetting(Date{now + options.seconds}, options.key));
    }
    case Command::settingsRemove:
        return stored(KRSettingsManager::removeLocalSettingForKey(options.key));
    default:
        print(valueText(ownSettings(machine)));
        return success;
    }
}

} // namespace morvellacinto::host
