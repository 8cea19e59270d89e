// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/Collection.h"

#include "morvellacinto/audience/AudienceSettings.h"
#include "morvellacinto/audience/CachedAnswer.h"
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/platform/Clock.h"
#include "morvellacinto/platform/Diagnostics.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/Guarded.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/platform/UserDefaults.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/AnsweredRequest.h"
#include "morvellacinto/transport/KRRequest.h"
#include "morvellacinto/transport/ServiceEndpoint.h"
#include "morvellacinto/transport/ShownUrl.h"

namespace morvellacinto {
namespace {

constexpr double freshForSeconds = 90.0;
constexpr std::string_view audiencePath = "/audience/";
constexpr std::string_view tagsFailed = "tags failed";
constexpr std::string_view serviceUrlMember = "serviceurl";
constexpr const char* forgetHint = " It is the base URL that the service or the host has stored "
                                   "under \"KRServiceURL\"; removing that setting forgets it.";

void deliver(KRAudienceManager::Completion completion, std::optional<Object> answer,
             std::optional<KRError> error = std::nullopt) {
    platform::current()->dispatch().asyncMain(
        [completion = std::move(completion), answer = std::move(answer), error = std::move(error)] {
            completion(answer, error);
        });
}

void keepAndDeliver(const std::optional<Value>& answer, const KRNetworkManager::AnswerFacts& facts,
                    const HeldCompletion& completion, std::int64_t erasures) {
    if (!completion) {
        return;
    }
    if (!answer || !answer->isObject()) {
        platform::tell<platform::AnswerDropped>(facts.status, facts.size,
                                                answer ? nameOf(answer->kind()) : "no JSON");
        return;
    }
    const auto platform = platform::current();
    const auto wasErased = [&] { return platform->standardUserDefaults().erasures() != erasures; };
    bool isKept = false;
    const auto keep = [&](const Value& value, std::string_view key) {
        if (wasErased()) {
            return false;
        }
        isKept = true;
        return KRSettingsManager::setLocalSetting(value, key);
    };
    keep(platform->clock().now(), lastUpdateKey);
    const bool isDurable = keep(*answer, lastAnswerKey);
    if (const Value* serviceUrl = answer->asObject().find(serviceUrlMember)) {
        platform::tellMade<platform::BaseUrlMoved>([&] {
            return platform::BaseUrlMoved{serviceUrl->isString()
                                              ? shownUrl(serviceUrl->asString())
                                              : std::string(nameOf(serviceUrl->kind()))};
        });
        keep(*serviceUrl, serviceUrlKey);
    }
    if (wasErased()) {
        for (const auto key : {lastUpdateKey, lastAnswerKey, serviceUrlKey}) {
            isKept&& KRSettingsManager::removeLocalSettingForKey(key); // erased at the same time
        }
        platform::tell<platform::AnswerNotKept>(facts.status, facts.size);
    } else {
        platform::tell<platform::AnswerCached>(isDurable);
    }
    deliver(*completion, answer->asObject());
}

// What the service or the host has stored as its base URL; text that is no URL for what is no text.
std::string textOf(const Value& base) {
    if (base.isString()) {
        return std::string(base.asString());
    }
    try {
        return writeJsonFragment(base);
    } catch (const JsonWriteError&) {
        return std::string(nameOf(base.kind()));
    }
}

platform::UploadBegun begun(const Object& payload, bool isForced) {
    platform::UploadBegun upload{{}, isForced};
    for (const Object::Member& member : payload) {
        upload.fields.push_back(
            {std::string(member.key()), writeJsonFragment(member.value).size()});
    }
    return upload;
}

void setTrackId(const AudienceSettings& settings, Object& payload) {
    if (const auto trackId = settings.currentTrackId()) {
        payload.set("vendorId", *trackId);
        payload.set("advertId", *trackId);
    }
}

KRRequest requestFor(const AudienceSettings& settings, const Object& payload, const Value& base) {
    return KRRequest::requestWithType(KRRequestTypePost, textOf(base).append(audiencePath), payload,
                                      settings.currentApiToken());
}

void upload(const AudienceSettings& settings, const Object& payload,
            const HeldCompletion& completion, bool isForced) {
    const Value base = KRNetworkManager::baseURL();
    const auto request = requestFor(settings, payload, base);
    if (!request.url()) {
        platform::tell<platform::BaseUrlRefused>(
            base.isString() ? '"' + request.refusedUrl() + '"' : std::string(nameOf(base.kind())));
    }
    platform::tellMade<platform::UploadBegun>([&] { return begun(payload, isForced); });
    KRNetworkManager::requestAnswer(
        request,
        [completion, erasures = platform::current()->standardUserDefaults().erasures()](
            const std::optional<Value>& answer, const auto& facts) {
            keepAndDeliver(answer, facts, completion, erasures);
        },
        [completion, isRefused = !request.url() || !request.url()->starts_with("https://") ||
                                 request.url()->find('@') != std::string::npos](KRError error) {
            if (isRefused && KRSettingsManager::localSettingForKey(serviceUrlKey)) {
                const Value message = error.userInfo.take(KRError::messageKey);
                error.userInfo.set(KRError::messageKey,
                                   (message.isString() ? std::string(message.asString()) : "") +
                                       forgetHint);
            }
            if (completion) {
                deliver(*completion, std::nullopt, error);
            } else {
                platform::tell<platform::ErrorUnheard>("an upload without a completion", error);
            }
        });
}

// A stored time in the future counts as fresh. Throws when what is stored is no time.
bool isFresh(const Value& lastUpdate) {
    const Date now = platform::current()->clock().now();
    return !(Date::secondsBetween(lastUpdate.asDate(), now) > freshForSeconds);
}

} // namespace

void collectAudience(const AudienceSettings& settings, Object& payload,
                     KRAudienceManager::Completion completion, bool force) {
    const auto platform = platform::current();
    platform::guarded(&platform->developerLog(), tagsFailed, [&] {
        setTrackId(settings, payload);
        std::optional<Value> lastUpdate;
        std::optional<Value> lastAnswer;
        if (completion) {
            lastUpdate = KRSettingsManager::localSettingForKey(lastUpdateKey);
            lastAnswer = KRSettingsManager::localSettingForKey(lastAnswerKey);
        }
        const bool isServedFromCache = lastUpdate && lastAnswer && isFresh(*lastUpdate) && !force;
        if (!isServedFromCache) {
            upload(settings, payload, held(std::exchange(completion, nullptr)), force);
        } else if (lastAnswer->isObject()) {
            platform::tellMade<platform::CacheServed>([&] {
                return platform::CacheServed{
                    Date::secondsBetween(lastUpdate->asDate(), platform->clock().now())};
            });
            deliver(std::exchange(completion, nullptr), lastAnswer->asObject());
        } else {
            platform::tell<platform::AnswerDropped>(0, std::size_t{0}, nameOf(lastAnswer->kind()));
        }
    });
    releaseOnMainQueue(std::move(completion)); // unless it was handed on
}

std::string uploadText(const AudienceSettings& settings, Object payload) {
    setTrackId(settings, payload);
    return requestFor(settings, payload, KRNetworkManager::baseURL()).payload().value();
}

} // namespace morvellacinto
