// SPDX-License-Identifier: MIT
#pragma once

// To read this folder: PhoneScript.h (what the phone tells), ScriptedPhone (how a test drives it),
// ScriptedClock and ScriptedDispatch (when anything happens), ScriptedHttp and
// ScriptedLocationServices (what answers late); the others answer at once and record.

#include "morvellacinto/platform/Platform.h"
#include "morvellacinto/scripted/ScriptedAssertionHandler.h"
#include "morvellacinto/scripted/ScriptedClock.h"
#include "morvellacinto/scripted/ScriptedDeveloperLog.h"
#include "morvellacinto/scripted/ScriptedDevice.h"
#include "morvellacinto/scripted/ScriptedDiagnostics.h"
#include "morvellacinto/scripted/ScriptedDispatch.h"
#include "morvellacinto/scripted/ScriptedHttp.h"
#include "morvellacinto/scripted/ScriptedLocationServices.h"
#include "morvellacinto/scripted/ScriptedUrlParser.h"
#include "morvellacinto/scripted/ScriptedUserDefaults.h"

#include <memory>
#include <string>
#include <vector>

namespace morvellacinto::scripted {

/// A phone made of a script, for tests: services answer what the script says and record what they
/// were asked, and nothing happens before the test says so. Time passes in `clock().advance`,
/// blocks run in `settle` and its parts, the service answers in `http().plan` or `http().answer`.
///
///     auto phone = ScriptedPhone::create();
///     platform::install(phone);
///     phone->script()->carriers = std::nullopt;
///     phone->http().plan({.body = R"({"tags": {}})"});
///     KRAudienceManager manager(std::nullopt);
///     manager.kovraTagsWithCompletion(
///         [](const auto& answer, auto&) { std::cout << writeJson(answer.value()) << '\n'; });
///     phone->settle();
///     phone->clock().advance(std::chrono::seconds(1)); // the location has come
///     phone->settle();
class MORVELLACINTO_EXPORT ScriptedPhone final : public platform::Platform {
public:
    /// The calling thread becomes the main thread.
    [[nodiscard]] static std::shared_ptr<ScriptedPhone> create(PhoneScript script = {});
    ~ScriptedPhone() override;

    /// May be changed at any time: `phone->script()->batteryLevel = 0.5F`.
    [[nodiscard]] SharedScript& script() noexcept { return *script_; }
    [[nodiscard]] ScriptedHttp& http() noexcept { return *http_; } ///< the service

    /// As the operations of `ScriptedDispatch`. @{
    std::size_t drainMain() { return dispatch_->drainMain(); }
    std::size_t runBackground() { return dispatch_->runBackground(); } ///@}
    /// Runs what is due, the main queue and the background queue in turn until all of them rest.
    /// No time passes. Main thread; throws what `drainMain` throws.
    void settle();

    /// The developer log since the last call.
    [[nodiscard]] std::vector<std::string> takeLog() { return developerLog_.takeLines(); }

    [[nodiscard]] ScriptedDispatch& dispatch() override { return *dispatch_; }
    [[nodiscard]] ScriptedClock& clock() override { return *clock_; }
    [[nodiscard]] ScriptedDeveloperLog& developerLog() override { return developerLog_; }
    [[nodiscard]] ScriptedAssertionHandler& assertionHandler() override {
        return assertionHandler_;
    }
    [[nodiscard]] ScriptedUserDefaults& standardUserDefaults() override { return userDefaults_; }
    [[nodiscard]] ScriptedUrlParser& urlParser() override { return urlParser_; }
    [[nodiscard]] ScriptedDevice& device() override { return device_; }
    [[nodiscard]] ScriptedDevice& systemVersion() override { return device_; }
    [[nodiscard]] ScriptedDevice& telephony() override { return device_; }
    [[nodiscard]] ScriptedDevice& tracking() override { return device_; }
    [[nodiscard]] ScriptedDevice& network() override { return device_; }
    [[nodiscard]] ScriptedLocationServices& locationServices() override { return location_; }
    [[nodiscard]] std::shared_ptr<platform::HttpSession>
    makeHttpSession(platform::HttpSessionConfiguration configuration,
                    platform::HttpSessionDelegate* delegate) override;

    [[nodiscard]] ScriptedDiagnostics* diagnostics() noexcept override { return &diagnostics_; }

    /// Drops blocks, scheduled ones included, and cancels tasks; nothing starts afterwards.
    void shutdown() override;

private:
    explicit ScriptedPhone(PhoneScript script);

    const std::shared_ptr<SharedScript> script_;
    const std::shared_ptr<ScriptedDispatch> dispatch_;
    const std::shared_ptr<ScriptedClock> clock_;
    const std::shared_ptr<ScriptedHttp> http_;
    ScriptedDeveloperLog developerLog_;
    ScriptedDiagnostics diagnostics_;
    ScriptedAssertionHandler assertionHandler_;
    ScriptedUserDefaults userDefaults_;
    ScriptedUrlParser urlParser_;
    ScriptedDevice device_;
    ScriptedLocationServices location_;
};

} // namespace morvellacinto::scripted
