// SPDX-License-Identifier: MIT
#include "morvellacinto/audience/KRAudienceManager.h"

#include "morvellacinto/audience/AudienceSettings.h"
#include "morvellacinto/audience/CachedAnswer.h"
#include "morvellacinto/audience/Collection.h"
#include "morvellacinto/audience/GeoTags.h"
#include "morvellacinto/audience/HeldCompletion.h"
#include "morvellacinto/audience/QueryString.h"

namespace morvellacinto {
namespace {

constexpr std::int32_t defaultDecimals = 5;

} // namespace

KRAudienceManager::KRAudienceManager(std::optional<Uuid> apiToken)
    : KRAudienceManager(apiToken, defaultDecimals) {}

KRAudienceManager::KRAudienceManager(std::optional<Uuid> apiToken, std::int32_t geoFixDecimals)
    : KRAudienceManager(apiToken, geoFixDecimals, std::nullopt) {}

KRAudienceManager::KRAudienceManager(std::optional<Uuid> apiToken, std::int32_t geoFixDecimals,
                                     OptionalText trackId)
    : settings_(std::make_shared<AudienceSettings>()) {
    settings_->apiToken = apiToken;
    settings_->geoFixDecimals = static_cast<float>(geoFixDecimals);
    settings_->trackId = trackId;
}

KRAudienceManager::KRAudienceManager(KRAudienceManager&& other) noexcept = default;
KRAudienceManager& KRAudienceManager::operator=(KRAudienceManager&& other) noexcept = default;
KRAudienceManager::~KRAudienceManager() = default;

std::optional<Uuid> KRAudienceManager::apiToken() const { return settings_->currentApiToken(); }

void KRAudienceManager::setApiToken(std::optional<Uuid> apiToken) {
    const std::lock_guard lock(settings_->mutex);
    settings_->apiToken = apiToken;
}

float KRAudienceManager::geoFixDecimals() const noexcept { return settings_->geoFixDecimals; }

void KRAudienceManager::setGeoFixDecimals(float decimals) noexcept {
    settings_->geoFixDecimals = decimals;
}

std::optional<std::string> KRAudienceManager::trackId() const {
    return settings_->currentTrackId();
}

void KRAudienceManager::setTrackId(OptionalText trackId) {
    std::optional<std::string> kept(trackId);
    const std::lock_guard lock(settings_->mutex);
    settings_->trackId.swap(kept);
}

bool KRAudienceManager::requestTrackingAuthorization() const noexcept {
    return settings_->requestTrackingAuthorization;
}

void KRAudienceManager::setRequestTrackingAuthorization(bool request) noexcept {
    settings_->requestTrackingAuthorization = request;
}

void KRAudienceManager::kovraTagsWithCompletion(Completion completion) {
    fetchGeoTags(settings_, held(std::move(completion)));
}

void KRAudienceManager::collect(Object& payload, Completion completion, bool force) {
    collectAudience(*settings_, payload, std::move(completion), force);
}

std::string KRAudienceManager::previewUpload(const Object& payload) const {
    return uploadText(*settings_, payload);
}

std::optional<Value> KRAudienceManager::cachedTags(KRTagsType type) const {
    return cachedMember(type);
}

std::string KRAudienceManager::toQueryString(const Object& tags) { return queryString(tags); }

} // namespace morvellacinto
