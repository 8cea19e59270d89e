#include "morvellacinto/audience/Collection.h"

#include "morvellacinto/audience/AudienceSettings.h"
#include "morvellacinto/audience/CachedAnswer.h"
#include "morvellacinto/foundation/Json.h"
#include "morvellacinto/platform/Clock.h"
#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/Guarded.h"
#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/settings/KRSettingsManager.h"
#include "morvellacinto/transport/KRRequest.h"
#include "morvellacinto/transport/RequestExecution.h"
#include "morvellacinto/transport/ServiceEndpoint.h"

namespace morvellacinto {
namespace {

using Completion = KRAudienceManager::Completion;

constexpr double freshForSeconds = 90.0;
constexpr std::string_view audiencePath = "/audience/";
constexpr std::string_view tagsFailed = "tags failed";
constexpr std::string_view serviceUrlMember = "serviceurl";

void deliver(Completion completion, Object answer) {
    platform::current()->dispatch().asyncMain(
        [completion = std::move(completion), answer = std::optional(std::move(answer))] {
            completion(answer, std::nullopt);
        });
}

void deliver(const Completion& completion, KRError error) {
    platform::current()->dispatch().asyncMain(
        [completion, error = std::optional(std::move(error))] { completion(std::nullopt, error); });
}

void keepAndDeliver(const std::optional<Value>& answer, const Completion& completion) {
    if (!answer || !completion || !answer->isObject()) {
        return;
    }
    KRSettingsManager::setLocalSetting(platform::current()->clock().now(), lastUpdateKey);
    KRSettingsManager::setLocalSetting(*answer, lastAnswerKey);
    if (const Value* serviceUrl = answer->asObject().find(serviceUrlMember)) {
        KRSettingsManager::setLocalSetting(*serviceUrl, serviceUrlKey);
    }
    deliver(completion, answer->asObject());
}

void upload(const AudienceSettings& settings, const Object& payload, const Completion& completion) {
    const Value base = KRNetworkManager::baseURL();
    std::string url = base.isString() ? std::string(base.asString()) : writeJsonFragment(base);
    url += audiencePath;
    KRNetworkManager::request(
        KRRequest::requestWithType(KRRequestTypePost, url, payload, settings.currentApiToken()),
        [completion](const std::optional<Value>& answer) { keepAndDeliver(answer, completion); },
        [completion](const KRError& error) {
            if (completion) {
                deliver(completion, error);
            }
        });
}

// A stored time in the future counts as fresh. Throws when what is stored is no time.
bool isFresh(const Value& lastUpdate) {
    const Date now = platform::current()->clock().now();
    return !(Date::secondsBetween(lastUpdate.asDate(), now) > freshForSeconds);
}

} // namespace

void collectAudience(const AudienceSettings& settings, Object& payload, Completion completion,
                     bool force) {
    const auto platform = platform::current();
    platform::guarded(platform->developerLog(), tagsFailed, [&] {
        if (const auto trackId = settings.currentTrackId()) {
            payload.set("vendorId", *trackId);
            payload.set("advertId", *trackId);
        }
        std::optional<Value> lastUpdate;
        std::optional<Value> lastAnswer;
        if (completion) {
            lastUpdate = KRSettingsManager::localSettingForKey(lastUpdateKey);
            lastAnswer = KRSettingsManager::localSettingForKey(lastAnswerKey);
        }
        const bool isServedFromCache = lastUpdate && lastAnswer && isFresh(*lastUpdate) && !force;
        if (!isServedFromCache) {
            upload(settings, payload, completion);
        } else if (lastAnswer->isObject()) {
            deliver(std::move(completion), lastAnswer->asObject());
        }
    });
}

} // namespace morvellacinto
