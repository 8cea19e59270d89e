// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedLocationServices.h"

#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

namespace morvellacinto::scripted {

using platform::LocationServiceDelegate;

// What the clients, who may outlive the services object, share with it.
struct ScriptedLocationServices::Shared {
    Shared(std::shared_ptr<SharedScript> itsScript, std::weak_ptr<platform::Dispatch> itsDispatch,
           Scheduler scheduler)
        : script(std::move(itsScript)), dispatch(std::move(itsDispatch)),
          schedule(std::move(scheduler)) {}

    // Calls `tell(service, delegate)` for each client.
    template <class Tell>
    void notify(Tell tell);

    const std::shared_ptr<SharedScript> script;
    const std::weak_ptr<platform::Dispatch> dispatch;
    const Scheduler schedule;
    std::atomic<int> startCount = 0;
    std::atomic<int> stopCount = 0;
    std::mutex mutex;
    std::vector<std::weak_ptr<Service>> services; // guarded by the mutex
};

class ScriptedLocationServices::Service final : public platform::LocationService,
                                                public std::enable_shared_from_this<Service> {
public:
    explicit Service(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

    void setDelegate(LocationServiceDelegate* delegate) override { delegate_ = delegate; }

    void startUpdatingLocation() override {
        ++shared_->startCount;
        if (isUpdating.exchange(true)) {
            return;
        }
        const int start = ++start_;
        const auto delay = shared_->script->lock()->location.delay;
        if (delay.has_value()) {
            shared_->schedule(*delay, [weak = weak_from_this(), start] {
                if (const auto service = weak.lock()) {
                    service->answer(start);
                }
            });
        }
    }

    void stopUpdatingLocation() override {
        ++shared_->stopCount;
        isUpdating = false;
    }

    [[nodiscard]] std::int32_t authorizationStatus() const override {
        const auto script = shared_->script->lock();
        return script->isAtLeast(14, 0) ? script->location.authorizationStatus
                                        : platform::LocationAuthorization::notDetermined;
    }

    [[nodiscard]] std::int32_t accuracyAuthorization() const override {
        return shared_->script->lock()->location.accuracyAuthorization;
    }

    // Calls `tell(service, delegate)` on the main queue when there still is a delegate then.
    template <class Tell>
    void notify(Tell tell) {
        if (const auto dispatch = shared_->dispatch.lock()) {
            dispatch->asyncMain([weak = weak_from_this(), tell = std::move(tell)] {
                const auto service = weak.lock();
                if (LocationServiceDelegate* delegate =
                        service ? service->delegate_.load() : nullptr) {
                    tell(*service, *delegate);
                }
            });
        }
    }

    // Tells what the script says, to the start of that number.
    void answer(int start) {
        notify([start](Service& service, LocationServiceDelegate& delegate) {
            const PhoneScript::Location location = service.shared_->script->lock()->location;
            if (!service.isUpdating || service.start_ != start) {
                return;
            }
            if (location.error.has_value()) {
                delegate.didFailWithError(service, *location.error);
            } else if (location.fixes.has_value()) {
                delegate.didUpdateLocations(service, *location.fixes);
            }
        });
    }

    std::atomic<bool> isUpdating = false;

private:
    const std::shared_ptr<Shared> shared_;
    std::atomic<LocationServiceDelegate*> delegate_ = nullptr;
    std::atomic<int> start_ = 0;
};

template <class Tell>
void ScriptedLocationServices::Shared::notify(Tell tell) {
    std::vector<std::shared_ptr<Service>> living; // let go without the lock
    const std::lock_guard lock(mutex);
    for (const auto& weak : services) {
        if (auto service = weak.lock()) {
            service->notify(tell);
            living.push_back(std::move(service));
        }
    }
}

ScriptedLocationServices::ScriptedLocationServices(std::shared_ptr<SharedScript> script,
                                                   std::weak_ptr<platform::Dispatch> dispatch,
                                                   Scheduler scheduler)
    : shared_(
          std::make_shared<Shared>(std::move(script), std::move(dispatch), std::move(scheduler))) {}

std::shared_ptr<platform::LocationService> ScriptedLocationServices::makeService() {
    auto service = std::make_shared<Service>(shared_);
    const std::lock_guard lock(shared_->mutex);
    std::erase_if(shared_->services, [](const auto& other) { return other.expired(); });
    shared_->services.push_back(service);
    return service;
}

bool ScriptedLocationServices::locationServicesEnabled() const {
    return shared_->script->lock()->location.servicesEnabled;
}

std::int32_t ScriptedLocationServices::authorizationStatus() const {
    return shared_->script->lock()->location.authorizationStatus;
}

void ScriptedLocationServices::deliver(const std::vector<platform::LocationFix>& fixes) {
    shared_->notify([fixes](Service& service, LocationServiceDelegate& delegate) {
        if (service.isUpdating) {
            delegate.didUpdateLocations(service, fixes);
        }
    });
}

void ScriptedLocationServices::fail(const KRError& error) {
    shared_->notify([error](Service& service, LocationServiceDelegate& delegate) {
        if (service.isUpdating) {
            delegate.didFailWithError(service, error);
        }
    });
}

void ScriptedLocationServices::changeAuthorization(std::int32_t status) {
    {
        const auto script = shared_->script->lock();
        script->location.authorizationStatus = status;
        if (!script->isAtLeast(14, 0)) {
            return;
        }
    }
    shared_->notify([](Service& service, LocationServiceDelegate& delegate) {
        delegate.locationManagerDidChangeAuthorization(service);
    });
}

int ScriptedLocationServices::startCount() const { return shared_->startCount; }

int ScriptedLocationServices::stopCount() const { return shared_->stopCount; }

} // namespace morvellacinto::scripted
