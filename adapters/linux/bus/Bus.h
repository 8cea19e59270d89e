// SPDX-License-Identifier: MIT
#pragma once

// Read Bus.h, BusConnection.h, then BusValues.h.

#include "Diagnostics.h"
#include "threads/StopSignal.h"

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>
#include <utility>

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
} // namespace BusError

/// What all connections to the system bus share. There is neither a thread nor a lasting
/// connection: each question opens one, which takes a quarter of a millisecond, on the thread that
/// asks. Any thread.
class Bus {
public:
    /// `stop` ends all that waits, and must outlive this.
    Bus(Diagnostics diagnostics, const StopSignal& stop)
        : diagnostics_(std::move(diagnostics)), stop_(stop) {}

    /// Tells what is wrong with the bus, once until it answers again.
    void tellTrouble(const std::string& trouble) {
        if (!told_.exchange(true)) {
            diagnostics_("the system bus " + trouble + "; what it would tell counts as unknown");
        }
    }
    void noteAnswer() noexcept { told_ = false; }
    [[nodiscard]] int stopDescriptor() const noexcept { return stop_.descriptor(); }

private:
    const Diagnostics diagnostics_;
    const StopSignal& stop_;
    std::atomic<bool> told_ = false;
};

} // namespace morvellacinto::native
