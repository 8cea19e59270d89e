#pragma once

#include "PrivateBus.h"

#include "threads/MainQueue.h"
#include "bus/Bus.h"
#include "location/NativeLocation.h"

#include <morvellacinto/native/LocationError.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
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
        events.push_back(std::to_string(fixes.size()) + " at " +
                         std::to_string(static_cast<int>(fixes.back().latitude)));
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
    LocationTest() {
        folder.write("usr/share/dbus-1/system-services/org.freedesktop.GeoClue2.service", "");
    }
    ~LocationTest() override {
        service.reset();
        bus->shutdown();
    }

    void makeService(std::chrono::milliseconds timeout = generous,
                     const std::optional<std::string>& bundle = "com.example.host") {
        location.emplace(
            queue, bus,
            LocationOptions{[bundle] { return bundle; }, timeout, GeoClueFiles(folder.path())});
        service = location->makeService();
        service->setDelegate(&listener);
    }

    void pumpUntil(const std::function<bool()>& done) {
        const auto limit = std::chrono::steady_clock::now() + generous;
        queue->drain();
        while (!done() && std::chrono::steady_clock::now() < limit) {
            pollfd waits{queue->descriptor(), POLLIN, 0};
            poll(&waits, 1, 100);
            queue->drain();
        }
        ASSERT_TRUE(done()) << ::testing::PrintToString(listener.events);
    }
    void pumpUntilEvents(std::size_t count) {
        pumpUntil([&] { return listener.events.size() >= count; });
    }
    // What the mock has sent so far has been handled, and told.
    void settle() {
        static_cast<void>(bus->call({geoClue, "/", "com.example.A", "Nothing", {}}));
        std::promise<void> done;
        bus->post([&done](BusConnection&) { done.set_value(); });
        done.get_future().wait();
        queue->drain();
    }

    TemporaryFolder folder;
    PrivateBus daemon;
    Listener listener;
    std::shared_ptr<MainQueue> queue = std::make_shared<MainQueue>();
    std::shared_ptr<Bus> bus = std::make_shared<Bus>([](std::string_view) {});
    std::optional<NativeLocation> location;
    std::shared_ptr<platform::LocationService> service;
};

} // namespace morvellacinto::native
