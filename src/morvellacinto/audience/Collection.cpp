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

// Whether the answer would survive loss of power; nothing when stored data was erased since, and it
// is not kept.
std::optional<bool> kept(const Value& answer, std::int64_t erasures) {
    const auto platform = platform::current();
    const auto wasErased = [&] { return platform->standardUserDefaults().erasures() != erasures; };
    if (wasErased()) {
        return std::nullopt;
    }
    KRSettingsManager::setLocalSetting(platform->clock().now(), lastUpdateKey);
    const bool isDurable = KRSettingsManager::setLocalSetting(answer, lastAnswerKey);
    const Value* const serviceUrl = answer.asObject().find(serviceUrlMember);
    if (serviceUrl != nullptr && !serviceUrl->isNull()) { // which settings refuse
        platform::tellMade([&] {
            return platform::BaseUrlMoved{serviceUrl->isString()
                                              ? shownUrl(serviceUrl->asString())
                                              : std::string(nameOf(serviceUrl->kind()))};
        });
        KRSettingsManager::setLocalSetting(*serviceUrl, serviceUrlKey);
    }
    if (wasErased()) { // at the same time
        for (const auto key : {lastUpdateKey, lastAnswerKey, serviceUrlKey}) {
            KRSettingsManager::removeLocalSettingForKey(key);
        }
        return std::nullopt;
    }
    return isDurable;
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
    if (const auto isDurable = kept(*answer, erasures)) {
        platform::tell<platform::AnswerCached>(*isDurable);
    } else {
        platform::tell<platform::AnswerNotKept>(facts.status, facts.size);
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

// Whether a transfer to it may fail for what the URL itself is.
bool mayBeAtFault(const std::optional<std::string>& url) {
    return !url || !url->starts_with("https://") || url->find('@') != std::string::npos;
}

void addForgetHint(KRError& error) {
    const Value message = error.userInfo.take(KRError::messageKey);
    error.userInfo.set(KRError::messageKey,
                       (message.isString() ? std::string(message.asString()) : "") + forgetHint);
}

void upload(const AudienceSettings& settings, const Object& payload,
            const HeldCompletion& completion, bool isForced) {
    const Value base = KRNetworkManager::baseURL();
    const auto request = KRRequest::requestWithType(
        KRRequestTypePost, textOf(base).append(audiencePath), payload, settings.currentApiToken());
    if (!request.url()) {
        platform::tell<platform::BaseUrlRefused>(
            base.isString() ? '"' + request.refusedUrl() + '"' : std::string(nameOf(base.kind())));
    }
    platform::tellMade([&] { return begun(payload, isForced); });
    KRNetworkManager::requestAnswer(
        request,
        [completion, erasures = platform::current()->standardUserDefaults().erasures()](
            const std::optional<Value>& answer, const auto& facts) {
            keepAndDeliver(answer, facts, completion, erasures);
        },
        [completion, isUrlSuspect = mayBeAtFault(request.url())](KRError error) {
            if (isUrlSuspect && KRSettingsManager::localSettingForKey(serviceUrlKey)) {
                addForgetHint(error);
            }
            if (completion) {
                deliver(*completion, std::nullopt, std::move(error));
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
            platform::tellMade([&] {
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
    return KRRequest::nativeToHttpData(payload).value();
}

} // namespace morvellacinto
