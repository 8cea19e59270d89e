// SPDX-License-Identifier: MIT
#include "morvellacinto/settings/KRSettingsManager.h"

#include "morvellacinto/platform/Guarded.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/UserDefaults.h"

#include <algorithm>
#include <array>

namespace morvellacinto::KRSettingsManager {
namespace {

using platform::libraryKeyPrefix;

constexpr std::string_view absentKeyText = "(null)";
constexpr std::string_view storingFailed = "storing failed";
constexpr std::string_view removingFailed = "removing failed";

// A full key on the stack unless it is long: a read of a cached value does not allocate.
class FullKey {
public:
    explicit FullKey(std::optional<std::string_view> key) {
        const std::string_view text = key.value_or(absentKeyText);
        length_ = libraryKeyPrefix.size() + text.size();
        char* start = short_.data();
        if (length_ > short_.size()) {
            long_.resize(length_);
            start = long_.data();
        }
        std::copy(text.begin(), text.end(),
                  std::copy(libraryKeyPrefix.begin(), libraryKeyPrefix.end(), start));
    }

    operator std::string_view() const {
        return {long_.empty() ? short_.data() : long_.data(), length_};
    }

private:
    std::size_t length_;
    std::array<char, 64> short_;
    std::string long_;
};

} // namespace

std::string fullKey(OptionalText key) { return std::string(std::string_view(FullKey(key))); }

bool setLocalSetting(std::optional<Value> setting, OptionalText key) {
    const auto platform = platform::current();
    if (!setting || !key) {
        return false;
    }
    bool stored = false;
    platform::guarded(&platform->developerLog(), storingFailed, [&] {
        if (setting->isNull()) {
            return;
        }
        platform->standardUserDefaults().setObjectForKey(*std::move(setting), FullKey(key));
        stored = platform->standardUserDefaults().synchronize();
    });
    return stored;
}

bool removeLocalSettingForKey(OptionalText key) {
    const auto platform = platform::current();
    bool removed = true;
    platform::guarded(&platform->developerLog(), removingFailed, [&] {
        const FullKey full(key);
        if (!platform->standardUserDefaults().objectForKey(full)) {
            return;
        }
        platform->standardUserDefaults().removeObjectForKey(full);
        removed = platform->standardUserDefaults().synchronize();
    });
    return removed;
}

std::optional<Value> localSettingForKey(OptionalText key) {
    return platform::current()->standardUserDefaults().objectForKey(FullKey(key));
}

} // namespace morvellacinto::KRSettingsManager
