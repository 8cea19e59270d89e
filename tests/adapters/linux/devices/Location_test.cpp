// SPDX-License-Identifier: MIT
#include "PrivateBus.h"
#include "adapters/linux/NativeFixtures.h"
#include "support/ShutdownLimit.h"

#include "bus/BusValues.h"
#include "location/NativeLocation.h"
#include "threads/MainQueue.h"
#include "threads/WorkerPool.h"

#include <gmock/gmock.h>

#include <sys/un.h>

namespace morvellacinto::native {
namespace {

using Clock = std::chrono::steady_clock;
using Refusal = LocationPermission::Refusal;
using ::testing::ElementsAre;

constexpr const char* geoClue = "org.freedesktop.GeoClue2";
constexpr const char* managerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char* managerInterface = "org.freedesktop.GeoClue2.Manager";
constexpr const char* clientPath = "/org/freedesktop/GeoClue2/Client/1";
constexpr const char* clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr std::chrono::milliseconds soon(200);

void answerNothing(sd_bus_message* /*call*/) {}

struct Listener final : platform::LocationServiceDelegate {
    void locationManagerDidChangeAuthorization(platform::LocationService& manager) override {
        events.push_back("status " + std::to_string(manager.authorizationStatus()));
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
};

// Unless told otherwise the daemon runs and its client starts at once.
struct LocationTest : ::testing::Test {
    LocationTest() {
        daemon.reply(managerPath, managerInterface, "CreateClient", "o", clientPath);
        daemon.reply(clientPath, clientInterface, "Start", "");
        daemon.onCall(clientPath, properties, "Set", [this](sd_bus_message* call) {
            set.append(valuesIn(call));
            sd_bus_reply_method_return(call, "");
        });
    }
    ~LocationTest() override {
        daemon.stopSignal.raise();
        workers.shutdown();
    }

    void start(std::chrono::milliseconds timeout = generous) {
        location = std::make_shared<NativeLocation>(
            queue, daemon.bus, workers,
            LocationOptions{"com.example.host", timeout, [] { return true; }});
        service = location->makeService();
        service->setDelegate(&listener);
        service->startUpdatingLocation();
        EXPECT_THAT(listener.events, ::testing::IsEmpty()) << "never inside the call";
    }
    void pumpUntil(const std::function<bool()>& done) {
        ASSERT_TRUE(native::pumpUntil(*queue, done)) << ::testing::PrintToString(listener.events);
    }
    void pumpUntilEvents(std::size_t count) {
        pumpUntil([&] { return listener.events.size() >= count; });
    }
    void onStart(PrivateBus::Method method) {
        daemon.onCall(clientPath, clientInterface, "Start", std::move(method));
    }
    void refuse(const char* message) {
        onStart([message](sd_bus_message* call) {
            sd_bus_reply_method_errorf(call, SD_BUS_ERROR_ACCESS_DENIED, "%s", message);
        });
    }
    template <class... Properties>
    void sendLocation(int count, Properties... each) {
        const std::string where = clientPath + ("/Location/" + std::to_string(++locations));
        daemon.reply(where, "org.freedesktop.GeoClue2.Location", "GetAll", "a{sv}", count, each...);
        daemon.send([&](sd_bus* bus) {
            sd_bus_emit_signal(bus, clientPath, clientInterface, "LocationUpdated", "oo", "/",
                               where.c_str());
        });
    }
    void sendFix(double latitude) {
        sendLocation(2, "Latitude", "d", latitude, "Longitude", "d", 18.07);
    }
    void sendActive(int isActive) {
        daemon.send([&](sd_bus* bus) {
            sd_bus_emit_signal(bus, clientPath, properties, "PropertiesChanged", "sa{sv}as",
                               clientInterface, 1, "Active", "b", isActive, 0);
        });
    }

    Array set; // how the client's properties were, to be read after a start
    PrivateBus daemon{{geoClue}};
    int locations = 0;
    Listener listener;
    std::shared_ptr<MainQueue> queue = std::make_shared<MainQueue>();
    WorkerPool workers{[](const std::exception_ptr&) { ADD_FAILURE() << "an exception"; }};
    std::shared_ptr<NativeLocation> location;
    std::shared_ptr<platform::LocationService> service;
};

TEST(LocationPermission, BelievesARefusalForSixtySecondsAndASuccessAtOnce) {
    auto now = Clock::now();
    bool exists = false;
    int asked = 0;
    LocationPermission permission([&] { return exists; }, [&] { return now; }, [&] { ++asked; });
    const auto stands = [&] {
        return std::pair(permission.authorizationStatus(), permission.servicesEnabled());
    };
    EXPECT_EQ(stands(), std::pair(0, false));
    exists = true;
    for (const auto& [refusal, refused, questions] :
         {std::tuple(Refusal::absent, std::pair(0, false), 1),
          std::tuple(Refusal::denied, std::pair(2, true), 0), // the service may ask the user
          std::tuple(Refusal::switchedOff, std::pair(4, false), 1)}) {
        permission.note(refusal);
        asked = 0;
        now += std::chrono::seconds(59);
        EXPECT_EQ(stands(), refused);
        EXPECT_EQ(asked, questions);
        now += std::chrono::seconds(1);
        EXPECT_FALSE(permission.noteAllowed());
        permission.note(refusal);
        EXPECT_TRUE(permission.noteAllowed());
        EXPECT_EQ(stands(), std::pair(4, true));
    }
}

TEST(LocationPermission, GeoClueIsFoundWhereABusCouldStartItOrASandboxLetsItThrough) {
    const char* const socket = "run/dbus/system_bus_socket";
    const char* const service = "opt/share/dbus-1/system-services/org.freedesktop.GeoClue2.service";
    const std::tuple<const char*, const char*, bool> cases[] = {
        {socket, "", false},
        {socket, service, true},
        {"", service, false},
        {socket, "usr/lib/dbus-1/system-services/org.freedesktop.GeoClue2.service", false},
        {socket, ".flatpak-info", true}};
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    setenv("XDG_DATA_DIRS", "/usr/share:/opt/share", 1);
    for (const auto& [bus, file, isFound] : cases) {
        const testing::TemporaryDirectory root;
        for (const char* name : {bus, file}) {
            root.write(name, "[System Bus Policy]\norg.freedesktop.GeoClue2=talk\n");
        }
        EXPECT_EQ(geoClueSearch(root.path())(), isFound) << bus << " " << file;
    }
}

TEST_F(LocationTest, AStartThatCannotSucceedFailsWithItsReason) {
    struct Case {
        std::function<void()> arrange;
        std::vector<std::string> events;
        int status;
        bool isEnabled;
    };
    const Case cases[] = {
        {[&] { daemon.serve({}); }, {"failed 1"}, 0, false},
        {[&] { daemon.serve({geoClue}), refuse("disallowed"); }, {"status 2", "failed 2"}, 2, true},
        {[&] { refuse("Geolocation disabled for UID 0"); }, {"status 2", "failed 2"}, 2, false},
        {[&] { daemon.reply(clientPath, clientInterface, "Start", ""); }, {"failed 3"}, 4, true},
        {[&] { onStart(answerNothing); }, {"failed 3"}, 4, true},
        {[&] { daemon.stop(); }, {"failed 1"}, 0, false}};
    for (const Case& each : cases) {
        SCOPED_TRACE(&each - cases);
        each.arrange();
        const auto before = Clock::now();
        listener.events.clear();
        start(each.events[0] == "failed 3" ? soon : generous);
        pumpUntilEvents(each.events.size());
        EXPECT_LT(Clock::now() - before, std::chrono::seconds(4));
        EXPECT_EQ(listener.events, each.events);
        EXPECT_EQ(service->authorizationStatus(), each.status);
        EXPECT_EQ(location->locationServicesEnabled(), each.isEnabled);
    }
}

TEST_F(LocationTest, FixesComeUntilStopAndNoneWhileLocationIsSwitchedOff) {
    start();
    service->startUpdatingLocation();
    ASSERT_TRUE(daemon.wasCalled("Start"));
    EXPECT_EQ(set, Array::of({Array::of({clientInterface, "DesktopId", "com.example.host"}),
                              Array::of({clientInterface, "RequestedAccuracyLevel", 8})}));
    sendLocation(5, "Latitude", "d", 59.5, "Longitude", "d", -18.5, "Speed", "d", 1.25, "Heading",
                 "d", 270.5, "Accuracy", "d", 12.5);
    pumpUntilEvents(1);
    const platform::LocationFix& fix = listener.last;
    EXPECT_EQ(std::tuple(fix.longitude, fix.speed, fix.course, fix.horizontalAccuracy),
              std::tuple(-18.5, 1.25, 270.5, std::optional(12.5)));
    sendLocation(2, "Latitude", "s", "60", "Longitude", "d", 1.0);
    sendFix(90.5);
    sendLocation(4, "Latitude", "d", 61.0, "Longitude", "d", 1.0, "Speed", "d", -2.0, "Heading",
                 "s", "north");
    pumpUntilEvents(2);
    EXPECT_EQ(std::pair(fix.speed, fix.course), std::pair(-1.0, -1.0));
    EXPECT_FALSE(fix.time || fix.horizontalAccuracy);
    sendFix(62);
    sendActive(false);
    for (const auto limit = Clock::now() + generous; location->locationServicesEnabled();) {
        ASSERT_LT(Clock::now(), limit);
    }
    pumpUntilEvents(3);
    sendActive(false); // which is no news
    sendActive(true);
    pumpUntilEvents(4);
    EXPECT_TRUE(location->locationServicesEnabled());
    sendFix(63);
    pumpUntilEvents(5);
    sendFix(64);
    pollfd waits{queue->descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&waits, 1, 20'000), 1) << "on its way";
    EXPECT_EQ(daemon.callsOf("CreateClient"), 1);
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    queue->drain();
    service->stopUpdatingLocation();
    workers.shutdown();
    queue->drain(); // what the runs told until their end
    EXPECT_THAT(listener.events, ElementsAre("at 59", "at 61", "status 4", "status 4", "at 63"));
}

TEST_F(LocationTest, AFixThatWasOldAtTheStartIsNoneAndTheTimeForOneEndsWithTheFirst) {
    start(2 * soon);
    const auto sendOfAge = [&](std::chrono::seconds age) {
        const auto time = std::chrono::system_clock::now() - age;
        const auto seconds = std::chrono::ceil<std::chrono::seconds>(time.time_since_epoch());
        sendLocation(3, "Latitude", "d", 59.5, "Longitude", "d", 18.5, "Timestamp", "(tt)",
                     std::uint64_t(seconds.count()), std::uint64_t(500));
        return static_cast<double>(seconds.count()) + 500e-6;
    };
    ASSERT_TRUE(daemon.wasCalled("Start"));
    sendOfAge(platform::maximumFixAge + std::chrono::seconds(20));
    pumpUntilEvents(1);
    service->startUpdatingLocation();
    ASSERT_TRUE(daemon.wasCalled("Start", 2));
    const double time = sendOfAge(platform::maximumFixAge - std::chrono::seconds(20));
    pumpUntilEvents(2);
    EXPECT_EQ(listener.last.time, Date{time});
    const auto limit = Clock::now() + 3 * soon;
    pumpUntil([&] { return Clock::now() > limit; });
    sendFix(60);
    pumpUntilEvents(3);
    EXPECT_THAT(listener.events, ElementsAre("failed 3", "at 59", "at 60"));
}

TEST_F(LocationTest, ADaemonThatEndsAndALostBusFailAndAStrangersSignalIsIgnored) {
    std::string us;
    onStart([&us](sd_bus_message* call) {
        us = sd_bus_message_get_sender(call);
        sd_bus_reply_method_return(call, "");
    });
    start();
    ASSERT_TRUE(daemon.wasCalled("Start"));
    sendFix(1);
    pumpUntilEvents(1);
    sd_bus* stranger = nullptr;
    sd_bus_message* lie = nullptr;
    ASSERT_GE(sd_bus_open_system(&stranger), 0);
    sd_bus_message_new_signal(stranger, &lie, clientPath, properties, "PropertiesChanged");
    sd_bus_message_append(lie, "sa{sv}as", clientInterface, 1, "Active", "b", 0, 0);
    sd_bus_message_set_destination(lie, us.c_str());
    EXPECT_GE(sd_bus_send(nullptr, lie, nullptr), 0);
    sd_bus_message_unref(lie);
    sd_bus_flush_close_unref(stranger);
    daemon.serve({geoClue}); // the daemon ends and another comes
    pumpUntilEvents(2);
    service->startUpdatingLocation();
    ASSERT_TRUE(daemon.wasCalled("Start", 2));
    sendFix(2);
    pumpUntilEvents(3);
    daemon.stop();
    pumpUntilEvents(4);
    EXPECT_THAT(listener.events, ElementsAre("at 1", "failed 4", "at 2", "failed 4"));
}

TEST_F(LocationTest, AStopWhileItStartsAndAServiceThatIsDroppedEndTheRunAtOnce) {
    daemon.onCall(managerPath, managerInterface, "CreateClient", answerNothing);
    start();
    ASSERT_TRUE(daemon.wasCalled("CreateClient"));
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    ASSERT_TRUE(daemon.wasCalled("CreateClient", 2));
    service.reset();
    const auto before = Clock::now();
    workers.shutdown();
    EXPECT_LT(Clock::now() - before, testing::shutdownLimit);
    queue->drain();
    EXPECT_EQ(daemon.callsOf("Start"), 0);
    EXPECT_THAT(listener.events, ::testing::IsEmpty());
    EXPECT_EQ(location->authorizationStatus(), 4) << "a stop tells nothing of the service";
}

TEST_F(LocationTest, AServiceThatIsBackCountsAsOnOnceTheStatusIsAskedFor) {
    daemon.serve({});
    start();
    pumpUntilEvents(1);
    EXPECT_FALSE(location->locationServicesEnabled()) << "nobody of that name";
    daemon.serve({geoClue});
    pumpUntil([&] { return location->locationServicesEnabled(); });
    EXPECT_THAT(listener.events, ElementsAre("failed 1"));
}

// The real daemon, which takes its positions from a socket of the test's.
TEST_F(LocationTest, TheRealDaemonDeliversThePositionThatItIsFed) {
    constexpr const char* program = "/usr/libexec/geoclue";
    if (!std::filesystem::exists(program) || unshare(CLONE_NEWNET) != 0) {
        GTEST_SKIP() << "no " << program << ", or no network namespace to keep it in";
    }
    const std::string where = (daemon.folder.path() / "nmea").string();
    sockaddr_un address{AF_UNIX, {}};
    where.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ASSERT_EQ(listen(listening, 4), 0);
    // What speaks for the user: they allow the finest accuracy.
    daemon.serve({"com.example.Agent"});
    daemon.reply("/org/freedesktop/GeoClue2/Agent", "org.freedesktop.GeoClue2.Agent", "GetAll",
                 "a{sv}", 1, "MaxAccuracyLevel", "u", 8U);
    const testing::ChildProcess geoClueDaemon({program, "-u", where});
    const BusCall question = readProperties(geoClue, managerPath, managerInterface);
    pumpUntil([&] { return BusConnection(daemon.bus).call(question).succeeded(); });
    daemon.send([](sd_bus* bus) {
        sd_bus_call_method_async(bus, nullptr, geoClue, managerPath, managerInterface, "AddAgent",
                                 nullptr, nullptr, "s", "geoclue-demo-agent");
    });
    ASSERT_TRUE(daemon.wasCalled("GetAll"));
    start();
    const int receiver = accept(listening, nullptr, nullptr);
    const std::time_t now = std::time(nullptr);
    std::array<char, 128> text{};
    const auto size =
        std::strftime(text.data(), text.size(),
                      "$GPGGA,%H%M%S.000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,*00\r\n",
                      std::gmtime(&now));
    EXPECT_EQ(send(receiver, text.data(), size, MSG_NOSIGNAL), size);
    pumpUntilEvents(1);
    EXPECT_NEAR(listener.last.latitude, 53.361337, 1e-6);
    EXPECT_NEAR(listener.last.longitude, -6.505620, 1e-6);
}

} // namespace
} // namespace morvellacinto::native
