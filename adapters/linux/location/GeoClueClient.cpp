#include "GeoClueClient.h"

#include "LocationContext.h"
#include "threads/MainQueue.h"
#include "bus/Bus.h"

#include <string>
#include <utility>

namespace morvellacinto::native {

namespace {

KRError errorOf(LocationErrorCode code, const std::string& message) {
    KRError error{std::string(locationErrorDomain), static_cast<std::int64_t>(code), {}};
    error.userInfo.set(KRError::messageKey, message);
    return error;
}

// Gives whether the delegates are to hear of a change. That there is no service is not for them:
// the failure tells.
bool note(LocationPermission& permission, const SessionEvent::Any& event) {
    if (std::holds_alternative<SessionEvent::Started>(event)) {
        return permission.noteAllowed();
    }
    if (const auto* switched = std::get_if<SessionEvent::Switched>(&event)) {
        if (switched->on) {
            permission.noteAllowed();
        } else {
            permission.noteSwitchedOff();
        }
        return true;
    }
    if (const auto* refused = std::get_if<SessionEvent::Refused>(&event)) {
        permission.noteDenied();
        if (refused->isSwitchedOff) {
            permission.noteSwitchedOff();
        }
        return true;
    }
    const auto* failed = std::get_if<SessionEvent::Failed>(&event);
    if (failed != nullptr && failed->code == LocationErrorCode::unavailable) {
        permission.noteAbsent();
    }
    return false;
}

} // namespace

GeoClueClient::GeoClueClient(std::shared_ptr<LocationContext> context)
    : context_(std::move(context)) {}

GeoClueClient::~GeoClueClient() { endSession(); }

void GeoClueClient::setDelegate(platform::LocationServiceDelegate* delegate) {
    delegate_ = delegate;
}

void GeoClueClient::startUpdatingLocation() {
    if (std::exchange(isUpdating_, true)) {
        return;
    }
    const auto tell = [client = weak_from_this(), context = context_,
                       run = ++run_](const SessionEvent::Any& event) {
        const bool isChange = note(context->permission(), event);
        // Weak, for the queue that the block waits in is the context's.
        context->mainQueue().post([client, shared = std::weak_ptr(context), run, event, isChange] {
            const auto known = shared.lock();
            if (isChange && known != nullptr) {
                known->tellAuthorizationChange();
            }
            if (const auto self = client.lock()) {
                self->handle(run, event);
            }
        });
    };
    const auto& bundle = context_->bundleIdentifier();
    if (!bundle) {
        tell(SessionEvent::Failed{LocationErrorCode::unavailable,
                                  "the application has no bundle identifier to ask with"});
        return;
    }
    session_ = std::make_shared<GeoClueSession>(*bundle, context_->timeout(), tell);
    const bool isPosted = context_->bus().post(
        [session = session_](BusConnection& connection) { session->start(connection); });
    if (!isPosted) {
        tell(SessionEvent::Failed{LocationErrorCode::unavailable, "no thread for the system bus"});
    }
}

void GeoClueClient::stopUpdatingLocation() {
    isUpdating_ = false;
    endSession();
}

std::int32_t GeoClueClient::authorizationStatus() const {
    return context_->permission().authorizationStatus();
}

std::int32_t GeoClueClient::accuracyAuthorization() const {
    return platform::AccuracyAuthorization::full;
}

void GeoClueClient::authorizationChanged() {
    if (auto* delegate = delegate_.load()) {
        delegate->locationManagerDidChangeAuthorization(*this);
    }
}

void GeoClueClient::handle(std::uint64_t run, const SessionEvent::Any& event) {
    if (const auto* fix = std::get_if<platform::LocationFix>(&event)) {
        auto* delegate = delegate_.load();
        if (isCurrent(run) && delegate != nullptr) {
            delegate->didUpdateLocations(*this, {*fix});
        }
    } else if (const auto* refused = std::get_if<SessionEvent::Refused>(&event)) {
        fail(run, LocationErrorCode::denied, refused->message);
    } else if (const auto* failed = std::get_if<SessionEvent::Failed>(&event)) {
        fail(run, failed->code, failed->message);
    }
}

void GeoClueClient::fail(std::uint64_t run, LocationErrorCode code, const std::string& message) {
    if (!isCurrent(run)) {
        return;
    }
    isUpdating_ = false;
    session_.reset();
    if (auto* delegate = delegate_.load()) {
        delegate->didFailWithError(*this, errorOf(code, message));
    }
}

void GeoClueClient::endSession() {
    if (session_ != nullptr) {
        context_->bus().post([session = std::exchange(session_, nullptr)](
                                 BusConnection& connection) { session->stop(connection); });
    }
}

} // namespace morvellacinto::native
