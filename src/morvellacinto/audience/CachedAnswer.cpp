// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/CachedAnswer.h"

#include "morvellacinto/settings/KRSettingsManager.h"

namespace morvellacinto {
namespace {

constexpr std::string_view memberFor(KRTagsType type) {
    switch (type) {
    case KRTagsTypeTags:
        return "tags";
    case KRTagsTypeMapping:
        return "mapping";
    }
    return {};
}

} // namespace

std::optional<Value> cachedMember(KRTagsType type) {
    const std::optional<Value> answer = KRSettingsManager::localSettingForKey(lastAnswerKey);
    const std::string_view member = memberFor(type);
    if (!answer || !answer->isObject() || member.empty()) {
        return std::nullopt;
    }
    const Value* found = answer->asObject().find(member);
    return found == nullptr ? std::nullopt : std::optional(*found);
}

} // namespace morvellacinto
