#include "morvellacinto/scripted/ScriptedTracking.h"

#include <stdexcept>

namespace morvellacinto::scripted {

namespace {

// The status after the user was asked, or nothing when the user never answers.
std::optional<std::uint64_t> askUser(SharedScript& shared) {
    const auto script = shared.lock();
    constexpr std::uint64_t undecided = platform::TrackingAuthorization::notDetermined;
    if (script->trackingAuthorization == undecided) {
        if (!script->trackingAnswer.has_value()) {
            return std::nullopt;
        }
        if (script->trackingAnswer == undecided) {
            throw std::logic_error("the script's trackingAnswer is 0, which is no answer");
        }
        script->trackingAuthorization = *script->trackingAnswer;
    }
    return script->trackingAuthorization;
}

} // namespace

ScriptedTracking::ScriptedTracking(ScriptPointer script, platform::Dispatch& dispatch)
    : script_(std::move(script)), dispatch_(dispatch) {}

std::optional<Uuid> ScriptedTracking::advertisingIdentifier() const {
    return script_->lock()->advertisingId;
}

bool ScriptedTracking::isAdvertisingTrackingEnabled() const {
    return script_->lock()->advertisingTrackingEnabled;
}

std::uint64_t ScriptedTracking::trackingAuthorizationStatus() const {
    return script_->lock()->trackingAuthorization;
}

void ScriptedTracking::requestTrackingAuthorization(Answer answer) {
    ++requestCount_;
    dispatch_.asyncGlobal([script = script_, answer = std::move(answer)] {
        if (const auto status = askUser(*script); status.has_value() && answer != nullptr) {
            answer(*status);
        }
    });
}

int ScriptedTracking::requestCount() const noexcept { return requestCount_; }

} // namespace morvellacinto::scripted
