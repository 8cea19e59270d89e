#include "morvellacinto/scripted/ScriptedLocationServices.h"

#include "morvellacinto/scripted/ScriptedSystemVersion.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

namespace morvellacinto::scripted {

// What the services object shares with its clients, who may outlive it.
class ScriptedLocationServices::Hub {
public:
    Hub(ScriptPointer sharedScript, platform::Dispatch& dispatch, Scheduler scheduler)
        : script(std::move(sharedScript)), dispatch_(&dispatch), scheduler_(std::move(scheduler)) {}

    void close() {
        Scheduler dropped; // destroyed without the lock
        const std::lock_guard lock(mutex_);
        dispatch_ = nullptr;
        dropped.swap(scheduler_);
    }

    // `block` holds nothing of the host's: a queue may drop it while the lock is held.
    void asyncMain(platform::Dispatch::Block block) {
        const std::lock_guard lock(mutex_);
        if (dispatch_ != nullptr) {
            dispatch_->asyncMain(std::move(block));
        }
    }

    void schedule(std::chrono::duration<double> delay, std::function<void()> block) {
        Scheduler scheduler;
        {
            const std::lock_guard lock(mutex_);
            scheduler = scheduler_;
        }
        if (scheduler != nullptr) {
            scheduler(delay, std::move(block));
        }
    }

    void add(const std::shared_ptr<Service>& service) {
        const std::lock_guard lock(mutex_);
        std::erase_if(services_, [](const auto& other) { return other.expired(); });
        services_.push_back(service);
        ++serviceCount;
    }

    std::vector<std::shared_ptr<Service>> services() {
        std::vector<std::shared_ptr<Service>> living;
        const std::lock_guard lock(mutex_);
        for (const auto& weak : services_) {
            if (auto service = weak.lock()) {
                living.push_back(std::move(service));
            }
        }
        return living;
    }

    const ScriptPointer script;
    std::atomic<int> serviceCount = 0;
    std::atomic<int> startCount = 0;
    std::atomic<int> stopCount = 0;

private:
    std::mutex mutex_;
    platform::Dispatch* dispatch_;
    Scheduler scheduler_;
    std::vector<std::weak_ptr<Service>> services_;
};

class ScriptedLocationServices::Service final
    : public platform::LocationService,
      public std::enable_shared_from_this<ScriptedLocationServices::Service> {
public:
    explicit Service(std::shared_ptr<Hub> hub) : hub_(std::move(hub)) {}

    void setDelegate(platform::LocationServiceDelegate* delegate) override { delegate_ = delegate; }

    void startUpdatingLocation() override {
        ++hub_->startCount;
        if (updating_.exchange(true)) {
            return;
        }
        const int start = ++start_;
        const auto delay = hub_->script->lock()->location.delay;
        if (delay.has_value()) {
            hub_->schedule(*delay, [weak = weak_from_this(), start] {
                if (const auto service = weak.lock()) {
                    service->answer(start);
                }
            });
        }
    }

    void stopUpdatingLocation() override {
        ++hub_->stopCount;
        updating_ = false;
    }

    [[nodiscard]] std::int32_t authorizationStatus() const override {
        return hub_->script->lock()->location.authorizationStatus;
    }

    [[nodiscard]] std::int32_t accuracyAuthorization() const override {
        return hub_->script->lock()->location.accuracyAuthorization;
    }

    [[nodiscard]] bool isUpdating() const { return updating_; }

    // Calls `tell(service, delegate)` on the main queue when there still is a delegate then.
    template <class Tell>
    void notify(Tell tell) {
        hub_->asyncMain([weak = weak_from_this(), tell = std::move(tell)] {
            if (const auto service = weak.lock()) {
                if (platform::LocationServiceDelegate* delegate = service->delegate_) {
                    tell(*service, *delegate);
                }
            }
        });
    }

    void deliver(const std::vector<platform::LocationFix>& fixes) {
        notify([fixes](Service& service, platform::LocationServiceDelegate& delegate) {
            if (service.updating_) {
                delegate.didUpdateLocations(service, fixes);
            }
        });
    }

    void fail(const KRError& error) {
        notify([error](Service& service, platform::LocationServiceDelegate& delegate) {
            if (service.updating_) {
                delegate.didFailWithError(service, error);
            }
        });
    }

private:
    // The script's answer to the start of that number.
    void answer(int start) {
        notify([start](Service& service, platform::LocationServiceDelegate& delegate) {
            if (!service.updating_ || service.start_ != start) {
                return;
            }
            const PhoneScript::Location location = service.hub_->script->lock()->location;
            if (location.error.has_value()) {
                delegate.didFailWithError(service, *location.error);
            } else if (location.fixes.has_value()) {
                delegate.didUpdateLocations(service, *location.fixes);
            }
        });
    }

    const std::shared_ptr<Hub> hub_;
    std::atomic<platform::LocationServiceDelegate*> delegate_ = nullptr;
    std::atomic<bool> updating_ = false;
    std::atomic<int> start_ = 0;
};

ScriptedLocationServices::ScriptedLocationServices(ScriptPointer script,
                                                   platform::Dispatch& dispatch,
                                                   Scheduler scheduler)
    : hub_(std::make_shared<Hub>(std::move(script), dispatch, std::move(scheduler))) {}

ScriptedLocationServices::~ScriptedLocationServices() { hub_->close(); }

std::shared_ptr<platform::LocationService> ScriptedLocationServices::makeService() {
    auto service = std::make_shared<Service>(hub_);
    hub_->add(service);
    return service;
}

bool ScriptedLocationServices::locationServicesEnabled() const {
    return hub_->script->lock()->location.servicesEnabled;
}

std::int32_t ScriptedLocationServices::authorizationStatus() const {
    return hub_->script->lock()->location.authorizationStatus;
}

void ScriptedLocationServices::deliver(const std::vector<platform::LocationFix>& fixes) {
    for (const auto& service : hub_->services()) {
        service->deliver(fixes);
    }
}

void ScriptedLocationServices::fail(const KRError& error) {
    for (const auto& service : hub_->services()) {
        service->fail(error);
    }
}

void ScriptedLocationServices::changeAuthorization(std::int32_t status) {
    hub_->script->lock()->location.authorizationStatus = status;
    // Older systems tell of a change by a notification that the interface does not have.
    if (!ScriptedSystemVersion(hub_->script).isAtLeast(14, 0)) {
        return;
    }
    for (const auto& service : hub_->services()) {
        service->notify([](Service& changed, platform::LocationServiceDelegate& delegate) {
            delegate.locationManagerDidChangeAuthorization(changed);
        });
    }
}

int ScriptedLocationServices::startCount() const { return hub_->startCount; }

int ScriptedLocationServices::stopCount() const { return hub_->stopCount; }

int ScriptedLocationServices::serviceCount() const { return hub_->serviceCount; }

bool ScriptedLocationServices::isUpdating() const {
    const auto services = hub_->services();
    return std::any_of(services.begin(), services.end(),
                       [](const auto& service) { return service->isUpdating(); });
}

} // namespace morvellacinto::scripted
