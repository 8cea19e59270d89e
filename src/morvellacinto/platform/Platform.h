// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/HttpSession.h"
#include "morvellacinto/platform/Interface.h"

#include <memory>
#include <optional>
#include <string>

namespace morvellacinto::platform {

class AssertionHandler;
class Clock;
class DeveloperLog;
class Device;
class Diagnostics;
class Dispatch;
class LocationServices;
class Network;
class SystemVersion;
class Telephony;
class Tracking;
class UrlParser;
class UserDefaults;

/// Everything that the library needs of the system below it. Any thread may ask.
class MORVELLACINTO_EXPORT Platform : public Interface {
public:
    /// Lives as long as the platform, as what `diagnostics` gives does. @{
    [[nodiscard]] virtual Dispatch& dispatch() = 0;
    [[nodiscard]] virtual Clock& clock() = 0;
    [[nodiscard]] virtual DeveloperLog& developerLog() = 0;
    [[nodiscard]] virtual AssertionHandler& assertionHandler() = 0;
    [[nodiscard]] virtual SystemVersion& systemVersion() = 0;
    [[nodiscard]] virtual UserDefaults& standardUserDefaults() = 0;
    [[nodiscard]] virtual UrlParser& urlParser() = 0;
    [[nodiscard]] virtual LocationServices& locationServices() = 0;
    [[nodiscard]] virtual Telephony& telephony() = 0;
    [[nodiscard]] virtual Device& device() = 0;
    [[nodiscard]] virtual Tracking& tracking() = 0;
    [[nodiscard]] virtual Network& network() = 0; ///@}
    /// The base URL while the service has not moved the library to another; nothing for the one
    /// that was chosen when the library was built.
    [[nodiscard]] virtual std::optional<std::string> defaultServiceUrl() { return std::nullopt; }
    /// Null when the platform has nobody to tell. Whether it has is asked once, by `install`.
    [[nodiscard]] virtual Diagnostics* diagnostics() noexcept { return nullptr; }
    /// A new session. `delegate` is asked for its opinion on authentication challenges and must
    /// outlive the session; null means default handling.
    [[nodiscard]] virtual std::shared_ptr<HttpSession>
    makeHttpSession(HttpSessionConfiguration configuration, HttpSessionDelegate* delegate) = 0;

    /// Ends everything that runs for the library, as `platform::shutdown` tells. May be called by
    /// several threads at once; none of the calls returns before that is done.
    virtual void shutdown() = 0;
};

/// Chooses the platform, once in the life of the process and before any other call of the library.
/// Throws std::logic_error when one has been installed before, std::invalid_argument for null.
MORVELLACINTO_EXPORT void install(std::shared_ptr<Platform> platform);

/// The installed platform. Throws std::logic_error when there is none, or when it has been shut
/// down. Any thread.
[[nodiscard]] MORVELLACINTO_EXPORT std::shared_ptr<Platform> current();

/// Ends the library's work for good: no callback starts afterwards, requests in flight are
/// cancelled, blocks that wait in queues are dropped, and the platform's threads are joined. That
/// takes at most 250 ms whatever the network does, longer only while host code runs on one of
/// those threads or settings are being flushed. Called from a callback it does not wait for the
/// thread that it is on. Calls of the library made meanwhile, such as by the destructor of a
/// callback that is dropped, start nothing; those made afterwards throw. A later call waits for
/// what an earlier one could not, as long as the host holds the platform. Without effect when
/// nothing is installed; a process may exit without it.
MORVELLACINTO_EXPORT void shutdown();

/// True from the moment at which `shutdown` is called with a platform installed. Any thread.
[[nodiscard]] MORVELLACINTO_EXPORT bool isShutDown() noexcept;

namespace detail {
/// Has a shutdown on the main thread end with a call of `release`, the library's own.
void atShutdown(void (*release)()) noexcept;
} // namespace detail

} // namespace morvellacinto::platform
