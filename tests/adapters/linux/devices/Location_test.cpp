#include "MockService.h"
#include "PrivateBus.h"
#include "support/Attack.h"

#include "location/NativeLocation.h"
#include "threads/MainQueue.h"
#include "threads/WorkerPool.h"

#include <morvellacinto/native/LocationError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace morvellacinto::native {
namespace {

using Refusal = LocationPermission::Refusal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* managerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char* managerInterface = "org.freedesktop.GeoClue2.Manager";
constexpr const char* clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* serviceFile = "/dbus-1/system-services/org.freedesktop.GeoClue2.service";
constexpr std::chrono::milliseconds soon(300);

constexpr const char* geoClue = "org.freedesktop.GeoClue2";
constexpr std::chrono::seconds generous(20);

// Writes down what it is told, with the status of that moment.
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

// A location service on a private bus that could start GeoClue.
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

std::string clientPath(int number) {
    return "/org/freedesktop/GeoClue2/Client/" + std::to_string(number);
}

// A daemon whose clients are numbered, and start at once.
class GeoClueMock : public MockService {
public:
    GeoClueMock() : MockService(geoClue) {
        onManager("CreateClient", [this](sd_bus_message* call) { createClient(call); });
        for (int number = 1; number <= 3; ++number) {
            onCall(clientPath(number), properties, "Set", [this](sd_bus_message* call) {
                const char* name = nullptr;
                const char* type = nullptr;
                sd_bus_message_read(call, "ss", nullptr, &name);
                sd_bus_message_peek_type(call, nullptr, &type);
                set += std::string(name) + " " + type + " ";
                reply(call);
            });
        }
        onStart([](sd_bus_message* call) { reply(call); });
    }

    void onManager(const std::string& member, Method method) {
        onCall(managerPath, managerInterface, member, std::move(method));
    }
    void onStart(const Method& method) {
        for (int number = 1; number <= 3; ++number) {
            onCall(clientPath(number), clientInterface, "Start", method);
        }
    }
    void createClient(sd_bus_message* call) {
        const std::string client = clientPath(++clients_);
        reply(call, values("o", client.c_str()));
    }
    void refuse(const std::string& message) {
        onStart([message](sd_bus_message* call) {
            sd_bus_reply_method_errorf(call, SD_BUS_ERROR_ACCESS_DENIED, "%s", message.c_str());
        });
    }
    void sendFix(MockProperties location, int client = 1) {
        const std::string where = clientPath(client) + "/Location/" + std::to_string(++locations_);
        setProperties(where, "org.freedesktop.GeoClue2.Location", std::move(location));
        emit(clientPath(client), clientInterface, "LocationUpdated",
             values("oo", "/", where.c_str()));
    }
    void sendFix(double latitude, int client = 1) {
        sendFix({{"Latitude", property("d", latitude)}, {"Longitude", property("d", 18.07)}},
                client);
    }
    void sendActive(bool isActive) {
        emit(clientPath(1), properties, "PropertiesChanged",
             values("sa{sv}as", clientInterface, 1, "Active", "b", static_cast<int>(isActive), 0));
    }

    std::string set; // to be read after a start

private:
    int clients_ = 0;
    int locations_ = 0;
};

TEST(LocationSearch, FilesAndSandboxTellOfTheServiceWhereThereIsABus) {
    const std::string usual = std::string("usr/share") + serviceFile;
    const std::string elsewhere = std::string("opt/data") + serviceFile;
    const auto finds = [](const char* address, const std::string& file, const char* content = "") {
        const TemporaryRoot root;
        setenv("DBUS_SYSTEM_BUS_ADDRESS", address, 1);
        root.write(file, content);
        return geoClueSearch(root.path())();
    };
    EXPECT_FALSE(finds("", usual));
    EXPECT_FALSE(finds("unix:path=/nonexistent/socket,guid=1", usual));
    EXPECT_TRUE(finds("unix:path=/proc/self,guid=1", usual));
    EXPECT_TRUE(finds("unix:abstract=x", usual));
    const std::string policy = "[System Bus Policy]\norg.freedesktop.GeoClue2=";
    EXPECT_TRUE(finds("unix:abstract=x", ".flatpak-info", (policy + "talk\n").c_str()));
    EXPECT_FALSE(finds("unix:abstract=x", ".flatpak-info", (policy + "see\n").c_str()));
    EXPECT_FALSE(finds("unix:abstract=x", elsewhere));
    setenv("XDG_DATA_DIRS", "relative:/opt/data", 1);
    EXPECT_TRUE(finds("unix:abstract=x", elsewhere));
}

TEST(LocationPermission, BelievesARefusalForSixtySecondsAndASuccessAtOnce) {
    auto now = LocationPermission::Clock::now();
    bool exists = false;
    LocationPermission permission([&] { return exists; }, [&] { return now; });
    EXPECT_EQ(permission.authorizationStatus(), 0);
    EXPECT_FALSE(permission.servicesEnabled());
    exists = true;
    for (const auto& [refusal, status, isEnabled] :
         {std::tuple(Refusal::absent, 0, false), std::tuple(Refusal::denied, 2, true),
          std::tuple(Refusal::switchedOff, 4, false)}) {
        permission.note(refusal);
        now += std::chrono::seconds(59);
        EXPECT_EQ(permission.authorizationStatus(), status);
        EXPECT_EQ(permission.servicesEnabled(), isEnabled);
        now += std::chrono::seconds(1);
        EXPECT_FALSE(permission.noteAllowed());
        permission.note(refusal);
        EXPECT_TRUE(permission.noteAllowed());
        EXPECT_EQ(permission.authorizationStatus(), 4);
        EXPECT_TRUE(permission.servicesEnabled());
    }
}

TEST_F(LocationTest, FixesComeUntilStopAndWhatIsUnknownStaysMinusOne) {
    GeoClueMock mock;
    makeService();
    EXPECT_EQ(service->authorizationStatus(), 4);
    EXPECT_EQ(service->accuracyAuthorization(), 0);
    service->startUpdatingLocation();
    service->startUpdatingLocation();
    EXPECT_THAT(listener.events, IsEmpty()) << "never inside the call";
    ASSERT_TRUE(mock.wasCalled("Start"));
    EXPECT_EQ(mock.set, "DesktopId s RequestedAccuracyLevel u ");
    mock.sendFix({{"Latitude", property("d", 59.5)},
                  {"Longitude", property("d", -18.5)},
                  {"Speed", property("d", 1.25)},
                  {"Heading", property("d", 270.5)}});
    pumpUntilEvents(1);
    EXPECT_EQ(listener.last.longitude, -18.5);
    EXPECT_EQ(listener.last.speed, 1.25);
    EXPECT_EQ(listener.last.course, 270.5);
    mock.sendFix({{"Latitude", property("s", "60")}, {"Longitude", property("d", 1.0)}});
    mock.sendFix(90.5);
    mock.sendFix({{"Latitude", property("d", 61.0)},
                  {"Longitude", property("d", 1.0)},
                  {"Speed", property("d", -1.0)},
                  {"Heading", property("s", "north")}});
    pumpUntilEvents(2);
    EXPECT_EQ(listener.last.speed, -1);
    EXPECT_EQ(listener.last.course, -1);
    mock.sendFix(62);
    ASSERT_TRUE(mock.wasCalled("GetAll", 5));
    service->stopUpdatingLocation();
    finish();
    EXPECT_THAT(listener.events, ElementsAre("at 59", "at 61"));
    EXPECT_EQ(mock.callsOf("CreateClient"), 1);
}

TEST_F(LocationTest, ARefusalTurnsTheStatusAndThenFails) {
    GeoClueMock mock;
    mock.refuse("'com.example.host' disallowed by configuration for UID 0");
    makeService();
    service->startUpdatingLocation();
    pumpUntilEvents(2);
    EXPECT_THAT(listener.events, ElementsAre("status 2", "failed 2"));
    EXPECT_TRUE(location->locationServicesEnabled());

    listener.events.clear();
    listener.stopsOnChange = true;
    mock.refuse("Geolocation disabled for UID 0");
    service->startUpdatingLocation();
    pumpUntilEvents(1);
    EXPECT_FALSE(location->locationServicesEnabled());

    listener.stopsOnChange = false;
    mock.onStart([](sd_bus_message* call) { reply(call); });
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start", 3));
    mock.sendFix(59, 3);
    pumpUntilEvents(3);
    EXPECT_THAT(listener.events, ElementsAre("status 2", "status 4", "at 59"))
        << "stopped by its delegate, then allowed again";
}

TEST_F(LocationTest, WithoutAnAnswerOrAFixItFailsInTimeAndTheTimeEndsWithTheFirstFix) {
    const auto silence = [](sd_bus_message*) {};
    for (int round = 0; round < 3; ++round) {
        GeoClueMock mock;
        if (round == 0) {
            mock.onManager("CreateClient", silence);
        } else if (round == 1) {
            mock.onStart(silence);
        }
        makeService(soon);
        service->startUpdatingLocation();
        pumpUntilEvents(1);
        EXPECT_THAT(listener.events, ElementsAre("failed 3")) << round;
        listener.events.clear();
    }
    GeoClueMock mock;
    makeService(soon);
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start"));
    mock.sendFix(1);
    const auto limit = std::chrono::steady_clock::now() + 2 * soon;
    pumpUntil([&] { return std::chrono::steady_clock::now() > limit; });
    mock.sendFix(2);
    pumpUntilEvents(2);
    EXPECT_THAT(listener.events, ElementsAre("at 1", "at 2"));
}

TEST_F(LocationTest, AbsenceAWrongAnswerADeathAndALostBusFail) {
    makeService(generous, std::nullopt);
    service->startUpdatingLocation();
    EXPECT_THAT(listener.events, IsEmpty()) << "never inside the call";
    pumpUntilEvents(1); // no bundle identifier
    EXPECT_EQ(service->authorizationStatus(), 0);
    makeService();
    service->startUpdatingLocation();
    pumpUntilEvents(2); // nobody of that name
    EXPECT_EQ(service->authorizationStatus(), 0);
    {
        GeoClueMock mock;
        mock.onManager("CreateClient", [](sd_bus_message* call) { reply(call, values("u", 7U)); });
        service->startUpdatingLocation();
        pumpUntilEvents(3);
        mock.onManager("CreateClient", [&mock](sd_bus_message*) { mock.die(); });
        service->startUpdatingLocation();
        pumpUntilEvents(4);
    }
    auto mock = std::make_unique<GeoClueMock>();
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock->wasCalled("Start"));
    mock->sendFix(1);
    pumpUntilEvents(5);
    mock = std::make_unique<GeoClueMock>(); // the daemon ends and another comes
    pumpUntilEvents(6);
    service->startUpdatingLocation();
    ASSERT_TRUE(mock->wasCalled("Start"));
    mock->sendFix(2);
    pumpUntilEvents(7);
    daemon.stop();
    pumpUntilEvents(8);
    service->startUpdatingLocation();
    pumpUntilEvents(9);
    EXPECT_THAT(listener.events, ElementsAre("failed 1", "failed 1", "failed 99", "failed 4",
                                             "at 1", "failed 4", "at 2", "failed 4", "failed 1"));
}

TEST_F(LocationTest, AStopWhileItStartsAndAServiceThatIsDroppedEndTheRunAtOnce) {
    GeoClueMock mock;
    mock.onManager("CreateClient", [](sd_bus_message*) {});
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("CreateClient"));
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("CreateClient", 2));
    service.reset();
    const auto start = std::chrono::steady_clock::now();
    finish();
    EXPECT_LT(std::chrono::steady_clock::now() - start, testing::shutdownLimit());
    EXPECT_EQ(mock.callsOf("Start"), 0);
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_EQ(location->authorizationStatus(), 4) << "a stop tells nothing of the service";
}

TEST_F(LocationTest, ADelegateThatWentHearsNothingAndAShutdownEndsTheRun) {
    GeoClueMock mock;
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start"));
    service->setDelegate(nullptr);
    mock.sendFix(1);
    ASSERT_TRUE(mock.wasCalled("GetAll"));
    mock.sendFix(2);
    ASSERT_TRUE(mock.wasCalled("GetAll", 2)); // so that the first has been told
    queue->drain();
    daemon.stopSignal.raise();
    location->shutdown();
    finish();
    service->setDelegate(&listener);
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    finish();
    EXPECT_THAT(listener.events, ::testing::Each("at 2"));
}

TEST_F(LocationTest, LocationSwitchedOffDropsTheFixOnItsWayAndFixesGoOnWhenItIsOnAgain) {
    GeoClueMock mock;
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start"));
    mock.sendFix(1);
    pumpUntilEvents(1);
    mock.sendFix(2);
    mock.sendActive(false);
    const auto limit = std::chrono::steady_clock::now() + generous;
    while (location->locationServicesEnabled() && std::chrono::steady_clock::now() < limit) {
        std::this_thread::yield();
    }
    pumpUntilEvents(2);
    EXPECT_FALSE(location->locationServicesEnabled());
    mock.sendActive(true);
    pumpUntilEvents(3);
    EXPECT_TRUE(location->locationServicesEnabled());
    mock.sendFix(3);
    pumpUntilEvents(4);
    EXPECT_THAT(listener.events, ElementsAre("at 1", "status 4", "status 4", "at 3"));
}

TEST_F(LocationTest, AnOldDaemonGivesTheConnectionsOneClient) {
    GeoClueMock mock;
    mock.onManager("CreateClient", [](sd_bus_message* call) {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no CreateClient");
    });
    mock.onManager("GetClient", [&mock](sd_bus_message* call) { mock.createClient(call); });
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start"));
    mock.sendFix(3);
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("at 3"));
}

constexpr const char* daemonProgram = "/usr/libexec/geoclue";
constexpr const char* agentPath = "/org/freedesktop/GeoClue2/Agent";
constexpr std::string_view positionSentence =
    "$GPGGA,092750.000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,*76\r\n";

// The real daemon, which takes its positions from a socket of the test's.
class RealGeoClue : public LocationTest {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(daemonProgram)) {
            GTEST_SKIP() << "no " << daemonProgram << " on this machine";
        }
        if (unshare(CLONE_NEWNET) != 0) {
            GTEST_SKIP() << "no network namespace that would keep the daemon to itself";
        }
        const std::string where = (daemon.folder.path() / "nmea").string();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        where.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(listener_, 4), 0);
        geoClueDaemon.emplace(std::vector<std::string>{daemonProgram, "-u", where});
        const auto limit = std::chrono::steady_clock::now() + generous;
        bool isUp = false;
        while (!isUp && std::chrono::steady_clock::now() < limit) {
            const BusReply reply = daemon.bus.call(
                {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                 "NameHasOwner", [](sd_bus_message* message) {
                     return sd_bus_message_append(message, "s", geoClue);
                 }});
            isUp = reply.body == Array::of({true});
        }
        ASSERT_TRUE(isUp) << daemonProgram << " does not take its name";
    }
    ~RealGeoClue() override { close(listener_); }

    // What speaks for the user: `maximum` is the finest accuracy that they allow, 0 none.
    void startAgent(unsigned maximum) {
        agent.emplace("com.example.Agent");
        agent->setProperties(agentPath, "org.freedesktop.GeoClue2.Agent",
                             {{"MaxAccuracyLevel", property("u", maximum)}});
        agent->call(geoClue, managerPath, managerInterface, "AddAgent",
                    values("s", "geoclue-demo-agent"));
        ASSERT_TRUE(agent->wasCalled("GetAll"));
    }

    const int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::optional<testing::ChildProcess> geoClueDaemon;
    std::optional<MockService> agent;
};

TEST_F(RealGeoClue, DeliversThePositionThatItIsFed) {
    startAgent(8);
    makeService();
    service->startUpdatingLocation();
    const int receiver = accept(listener_, nullptr, nullptr);
    ASSERT_GE(receiver, 0);
    ASSERT_EQ(send(receiver, positionSentence.data(), positionSentence.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(positionSentence.size()));
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("at 53"));
    EXPECT_NEAR(listener.last.latitude, 53.361337, 1e-6);
    EXPECT_NEAR(listener.last.longitude, -6.505620, 1e-6);
    EXPECT_EQ(listener.last.speed, -1);
    EXPECT_EQ(listener.last.course, -1);
    service->stopUpdatingLocation();
    char rest = 0;
    EXPECT_EQ(read(receiver, &rest, 1), 0) << "the daemon lets go of its source when nobody asks";
    close(receiver);
}

TEST_F(RealGeoClue, SwitchedOffByTheUserItRefuses) {
    startAgent(0);
    makeService();
    service->startUpdatingLocation();
    pumpUntilEvents(2);
    EXPECT_THAT(listener.events, ElementsAre("status 2", "failed 2"));
    EXPECT_FALSE(location->locationServicesEnabled());
}

TEST_F(RealGeoClue, WithoutAnAgentItNeverAnswersAndTheUpdateFailsInTime) {
    makeService(std::chrono::milliseconds(500));
    service->startUpdatingLocation();
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("failed 3"));
}

} // namespace
} // namespace morvellacinto::native
