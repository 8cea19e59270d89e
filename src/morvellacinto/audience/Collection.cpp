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

namespace morvellacinto {
namespace {

constexpr double freshForSeconds = 90.0;
constexpr std::string_view audiencePath = "/audience/";
constexpr std::string_view tagsFailed = "tags failed";
constexpr std::string_view serviceUrlMember = "serviceurl";

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
        if (!wasErased()) {
            isKept = true;
            KRSettingsManager::setLocalSetting(value, key);
        }
    };
    keep(platform->clock().now(), lastUpdateKey);
    keep(*answer, lastAnswerKey);
    if (const Value* serviceUrl = answer->asObject().find(serviceUrlMember)) {
        keep(*serviceUrl, serviceUrlKey);
    }
    if (wasErased()) {
        for (const auto key : {lastUpdateKey, lastAnswerKey, serviceUrlKey}) {
            isKept&& KRSettingsManager::removeLocalSettingForKey(key); // erased at the same time
        }
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
            const HeldCompletion& completion) {
    const Value base = KRNetworkManager::baseURL();
    const auto request = requestFor(settings, payload, base);
    if (!request.url()) {
        platform::tell<platform::BaseUrlRefused>(
            base.isString() ? '"' + request.refusedUrl() + '"' : std::string(nameOf(base.kind())));
    }
    KRNetworkManager::requestAnswer(
        request,
        [completion, erasures = platform::current()->standardUserDefaults().erasures()](
            const std::optional<Value>& answer, const auto& facts) {
            keepAndDeliver(answer, facts, completion, erasures);
        },
        [completion](const KRError& error) {
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
            upload(settings, payload, held(std::exchange(completion, nullptr)));
        } else if (lastAnswer->isObject()) {
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
