// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedPhone.h"

#include <stdexcept>
#include <utility>

namespace morvellacinto::scripted {

namespace {

constexpr int maximumRoundsOfSettling = 10'000;

} // namespace

std::shared_ptr<ScriptedPhone> ScriptedPhone::create(PhoneScript script) {
    return std::shared_ptr<ScriptedPhone>(new ScriptedPhone(std::move(script)));
}

// Clients of the services may outlive the phone; what they queued must not.
ScriptedPhone::~ScriptedPhone() { shutdown(); }

void ScriptedPhone::settle() {
    for (int round = 0; round < maximumRoundsOfSettling; ++round) {
        clock_->advance(ScriptedClock::Duration::zero());
        const std::size_t ran = drainMain() + runBackground();
        if (ran == 0 && dispatch_->waitingCount() == 0) {
            return;
        }
    }
    throw std::logic_error("the queues keep each other busy and do not come to rest");
}

std::shared_ptr<platform::HttpSession>
ScriptedPhone::makeHttpSession(platform::HttpSessionConfiguration configuration,
                               platform::HttpSessionDelegate* delegate) {
    return http_->makeSession(std::move(configuration), delegate);
}

void ScriptedPhone::shutdown() {
    dispatch_->shutdown();
    clock_->shutdown();
    http_->cancelAll();
}

ScriptedPhone::ScriptedPhone(PhoneScript script)
    : script_(std::make_shared<SharedScript>(std::move(script))),
      dispatch_(std::make_shared<ScriptedDispatch>()), clock_(std::make_shared<ScriptedClock>()),
      http_(std::make_shared<ScriptedHttp>(dispatch_, clock_)), device_(script_, *dispatch_),
      location_(script_, dispatch_, [clock = clock_](auto delay, auto block) {
          clock->schedule(delay, std::move(block));
      }) {}

} // namespace morvellacinto::scripted
