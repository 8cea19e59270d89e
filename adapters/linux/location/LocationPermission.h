#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>

namespace morvellacinto::native {

/// What is known about whether location may be used: kept from the service's answers, so that
/// questions never wait. A refusal is believed for 60 seconds; after that it takes another attempt
/// to tell. Any thread.
class LocationPermission {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds refusalHolds{60};

    explicit LocationPermission(std::function<Clock::time_point()> now = Clock::now);

    /// A `platform::LocationAuthorization`: 4 when the service can be used, 2 while a refusal
    /// holds, 0 when there is no service.
    [[nodiscard]] std::int32_t authorizationStatus() const;
    [[nodiscard]] bool servicesEnabled() const;

    /// Whether there is known to be a service that the application could use.
    [[nodiscard]] bool isUsable() const;
    /// There is a service and what it takes to use it. Whether that was news.
    bool noteUsable();
    /// There turned out to be no service, for now.
    void noteAbsent();
    void noteDenied();
    /// Location is switched off for the whole device.
    void noteSwitchedOff();
    /// The service works for this application. Whether that was news.
    bool noteAllowed();

private:
    [[nodiscard]] bool holds(Clock::time_point until) const { return now_() < until; }

    const std::function<Clock::time_point()> now_;
    mutable std::mutex mutex_;
    bool canBeUsed_ = false;
    Clock::time_point absentUntil_ = Clock::time_point::min();
    Clock::time_point deniedUntil_ = Clock::time_point::min();
    Clock::time_point switchedOffUntil_ = Clock::time_point::min();
};

} // namespace morvellacinto::native
