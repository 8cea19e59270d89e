// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>

namespace morvellacinto::native {

/// Tells, from files below `root`, whether there is a system bus that can start GeoClue or to which
/// a sandbox lets the application talk. Reads the environment now and files when it is called. A
/// bus whose address the environment gives is taken to exist.
[[nodiscard]] std::function<bool()> geoClueSearch(const std::filesystem::path& root = "/");

/// What is known about whether location may be used: kept from the service's answers, so that
/// questions never wait. A refusal is believed for 60 seconds; meanwhile questions have the service
/// asked again, at most once a second, unless it refused this application alone. Any thread.
class LocationPermission {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds questionInterval{1};
    enum class Refusal {
        absent, ///< there turned out to be no service
        denied,
        switchedOff, ///< for the whole device
    };

    /// `serviceExists`, whether there is a service that the application could use, is asked at each
    /// question until it has said yes. `askAgain` must not wait; the answer is to be noted here.
    explicit LocationPermission(
        std::function<bool()> serviceExists, std::function<Clock::time_point()> now = Clock::now,
        std::function<void()> askAgain = [] {});

    /// A `platform::LocationAuthorization`: 4 when the service can be used, 2 while it is denied, 0
    /// when there is no service.
    [[nodiscard]] std::int32_t authorizationStatus() const;
    [[nodiscard]] bool servicesEnabled() const;

    void note(Refusal refusal);
    /// The service works for this application. Whether that was news.
    bool noteAllowed();

private:
    [[nodiscard]] bool holds(Refusal refusal) const;
    [[nodiscard]] bool canBeUsed() const;

    const std::function<bool()> serviceExists_;
    const std::function<Clock::time_point()> now_;
    const std::function<void()> askAgain_;
    mutable std::atomic<bool> isKnownToExist_ = false;
    mutable std::mutex mutex_;
    std::array<Clock::time_point, 3> until_{};
    mutable Clock::time_point nextQuestion_;
};

} // namespace morvellacinto::native
