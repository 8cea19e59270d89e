#pragma once

#include "MockService.h"
#include "PrivateBus.h"

#include "location/NativeLocation.h"
#include "threads/MainQueue.h"
#include "threads/WorkerPool.h"

#include <morvellacinto/native/LocationError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

namespace morvellacinto::native {

inline constexpr const char* geoClue = "org.freedesktop.GeoClue2";
inline constexpr std::chrono::seconds generous(20);

/// Writes down what it is told, with the status of that moment.
class Listener final : public platform::LocationServiceDelegate {
public:
    void locationManagerDidChangeAuthorization(platform::LocationService& manager) override {
        events.push_back("status " + std::to_string(manager.authorizationStatus()));
        if (stopsOnChange) {
            manager.stopUpdatingLocation();
        }
    }
    void didUpdateLocations(platform::LocationService& /*manager*/,
                            const std::vector<platform::LocationFix>& fixes) override {
        events.push_back("at " + std::to_string(static_cast<int>(fixes.back().latitude)));
        last = fixes.back();
    }
    void didFailWithError(platform::LocationService& /*manager*/, const KRError& error) override {
        EXPECT_EQ(error.domain, locationErrorDomain);
        events.push_back("failed " + std::to_string(error.code));
    }

    std::vector<std::string> events;
    platform::LocationFix last;
    bool stopsOnChange = false;
};

/// A location service on a private bus that could start GeoClue.
class LocationTest : public ::testing::Test {
protected:
    ~LocationTest() override {
        daemon.stopSignal.raise();
        workers.shutdown();
    }

    void makeService(std::chrono::milliseconds timeout = generous,
                     const std::optional<std::string>& bundle = "com.example.host") {
        location = std::make_shared<NativeLocation>(
            queue, daemon.bus, workers,
            LocationOptions{[bundle] { return bundle; }, timeout, [] { return true; }});
        service = location->makeService();
        service->setDelegate(&listener);
    }
    void pumpUntil(const std::function<bool()>& done) {
        const auto limit = std::chrono::steady_clock::now() + generous;
        queue->drain();
        while (!done() && std::chrono::steady_clock::now() < limit) {
            pollfd waits{queue->descriptor(), POLLIN, 0};
            poll(&waits, 1, 10);
            queue->drain();
        }
        ASSERT_TRUE(done()) << ::testing::PrintToString(listener.events);
    }
    void pumpUntilEvents(std::size_t count) {
        pumpUntil([&] { return listener.events.size() >= count; });
    }
    // All runs have been stopped: they end, and what they told is heard.
    void finish() {
        workers.shutdown();
        queue->drain();
    }

    PrivateBus daemon;
    Listener listener;
    std::shared_ptr<MainQueue> queue = std::make_shared<MainQueue>();
    WorkerPool workers{[](const std::exception_ptr&) { ADD_FAILURE() << "an exception"; }};
    std::shared_ptr<NativeLocation> location;
    std::shared_ptr<platform::LocationService> service;
};

} // namespace morvellacinto::native
