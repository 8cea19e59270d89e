// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/LocationService.h"
#include "morvellacinto/scripted/PhoneScript.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace morvellacinto::scripted {

/// Runs a block once, on any thread, when the delay has passed.
using Scheduler =
    std::function<void(std::chrono::duration<double> delay, std::function<void()> block)>;

/// A location service that answers each start with the script's fixes or its error, once, after
/// the script's delay; and that a test can make speak by hand.
///
/// Before 14.0 only the services object knows the authorization status, and a client's is 0.
/// Delegates are notified by blocks of the main queue alone. Clients may outlive this object and
/// its queue, and keep the scheduler.
class MORVELLACINTO_EXPORT ScriptedLocationServices final : public platform::LocationServices {
public:
    ScriptedLocationServices(std::shared_ptr<SharedScript> script,
                             std::weak_ptr<platform::Dispatch> dispatch, Scheduler scheduler);

    [[nodiscard]] std::shared_ptr<platform::LocationService> makeService() override;
    [[nodiscard]] bool locationServicesEnabled() const override;
    [[nodiscard]] std::int32_t authorizationStatus() const override;

    /// Queue a delivery to every client that is still updating when the main queue comes to it.
    /// Any thread. @{
    void deliver(const std::vector<platform::LocationFix>& fixes);
    void fail(const KRError& error); ///@}
    /// Puts `status` into the script; from 14.0 on every client is notified. Any thread.
    void changeAuthorization(std::int32_t status);

    /// Calls of all clients together since the beginning, those without effect included. @{
    [[nodiscard]] int startCount() const;
    [[nodiscard]] int stopCount() const; ///@}

private:
    class Service;
    struct Shared;

    const std::shared_ptr<Shared> shared_;
};

} // namespace morvellacinto::scripted
