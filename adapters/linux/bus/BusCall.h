#pragma once

#include "morvellacinto/foundation/Value.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

struct sd_bus_message;

namespace morvellacinto::native {

/// What a question may take, with all the calls that it makes.
inline constexpr std::chrono::milliseconds busTimeout(200);

/// Names of errors that calls end with besides those of the services.
namespace BusError {
inline constexpr std::string_view accessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr std::string_view disconnected = "org.freedesktop.DBus.Error.Disconnected";
/// The bus tells it of a service that ends with a call unanswered.
inline constexpr std::string_view noReply = "org.freedesktop.DBus.Error.NoReply";
inline constexpr std::string_view serviceUnknown = "org.freedesktop.DBus.Error.ServiceUnknown";
inline constexpr std::string_view timedOut = "org.freedesktop.DBus.Error.Timeout";
inline constexpr std::string_view unknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
} // namespace BusError

/// A method call on the system bus.
struct BusCall {
    std::string destination;
    std::string path;
    std::string interface;
    std::string member;
    /// Appends the arguments; gives a negative errno when that fails. Empty: there are none.
    std::function<int(sd_bus_message*)> arguments = {};
};

/// What came of a call.
struct BusReply {
    Array body;
    std::string sender; ///< the connection that answered
    /// The D-Bus name of the error; empty when the call succeeded.
    std::string errorName;
    std::string errorMessage;

    [[nodiscard]] bool succeeded() const noexcept { return errorName.empty(); }
};

} // namespace morvellacinto::native
