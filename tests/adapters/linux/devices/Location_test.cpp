#include "LocationFixture.h"
#include "MockService.h"

#include "location/LocationPermission.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <systemd/sd-bus.h>
#include <thread>

namespace morvellacinto::native {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char* locationInterface = "org.freedesktop.GeoClue2.Location";
constexpr const char* accessDenied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr std::chrono::milliseconds soon(300);

// A daemon whose clients are numbered, and start at once.
class GeoClueMock : public MockService {
public:
    explicit GeoClueMock(Entry entry = Entry::atOnce) : MockService(geoClue, entry) {
        onCall("CreateClient", [this](sd_bus_message* call) { createClient(call); });
        for (const char* member : {"DeleteClient", "Start", "Stop"}) {
            onCall(member, [](sd_bus_message* call) { reply(call, {}); });
        }
    }

    void createClient(sd_bus_message* call) {
        const std::string client = "/client/" + std::to_string(++clients_);
        reply(call, [&](sd_bus_message* message) {
            sd_bus_message_append(message, "o", client.c_str());
        });
    }

    void refuseStart(const std::string& message) {
        onCall("Start",
               [message](sd_bus_message* call) { replyError(call, accessDenied, message); });
    }

    void sendFix(MockProperties location, const std::string& client = "/client/1") {
        const std::string where = client + "/location/" + std::to_string(++locations_);
        setProperties(where, locationInterface, std::move(location));
        emit(client, clientInterface, "LocationUpdated", [where](sd_bus_message* message) {
            sd_bus_message_append(message, "oo", "/", where.c_str());
        });
    }

    void sendActive(bool isActive) {
        emit("/client/1", "org.freedesktop.DBus.Properties", "PropertiesChanged",
             [isActive](sd_bus_message* message) {
                 sd_bus_message_append(message, "sa{sv}as", clientInterface, 1, "Active", "b",
                                       static_cast<int>(isActive), 0);
             });
    }

private:
    int clients_ = 0;
    int locations_ = 0;
};

MockProperties at(double latitude) {
    return {{"Latitude", number(latitude)}, {"Longitude", number(18.07)}};
}

TEST_F(LocationTest, BeforeAStartTheSystemsFilesTellTheStatus) {
    makeService();
    EXPECT_EQ(service->authorizationStatus(), 4);
    EXPECT_TRUE(location->locationServicesEnabled());
    EXPECT_EQ(service->accuracyAuthorization(), 0);
    makeService(generous, std::nullopt);
    EXPECT_EQ(service->authorizationStatus(), 0);
    EXPECT_FALSE(location->locationServicesEnabled());
    service->startUpdatingLocation();
    EXPECT_THAT(listener.events, IsEmpty()) << "never inside the call";
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("failed 1"));

    const TemporaryFolder sandbox;
    EXPECT_FALSE(GeoClueFiles(sandbox.path()).serviceExists());
    sandbox.write(".flatpak-info", "[System Bus Policy]\norg.freedesktop.GeoClue2=talk\n");
    EXPECT_TRUE(GeoClueFiles(sandbox.path()).serviceExists());
    setenv("XDG_DATA_DIRS", "relative:/data", 1);
    const TemporaryFolder elsewhere;
    elsewhere.write("data/dbus-1/system-services/org.freedesktop.GeoClue2.service", "");
    EXPECT_TRUE(GeoClueFiles(elsewhere.path()).serviceExists());
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/socket,guid=1", 1);
    EXPECT_FALSE(GeoClueFiles(elsewhere.path()).busExists());
}

TEST_F(LocationTest, ADaemonThatNoFileTellsOfIsFoundOnTheBus) {
    const GeoClueMock mock;
    std::filesystem::remove_all(folder.path() / "usr");
    makeService();
    EXPECT_EQ(service->authorizationStatus(), 0);
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("status 4"));
    EXPECT_TRUE(location->locationServicesEnabled());
}

TEST_F(LocationTest, FixesComeUntilStopAndWhatIsUnknownStaysMinusOne) {
    GeoClueMock mock;
    std::mutex mutex;
    std::vector<std::string> set;
    mock.onCall("Set", [&](sd_bus_message* call) {
        const char* name = nullptr;
        sd_bus_message_read(call, "ss", nullptr, &name);
        const std::lock_guard lock(mutex);
        set.emplace_back(name);
        if (set.back() == "DesktopId") {
            const char* id = nullptr;
            sd_bus_message_read(call, "v", "s", &id);
            EXPECT_STREQ(id, "com.example.host");
        }
    });
    makeService();
    service->startUpdatingLocation();
    service->startUpdatingLocation();
    EXPECT_THAT(listener.events, IsEmpty());
    ASSERT_TRUE(mock.wasCalled("Start"));
    mock.sendFix({{"Latitude", number(59.5)},
                  {"Longitude", number(-18.5)},
                  {"Speed", number(1.25)},
                  {"Heading", number(270.5)}});
    pumpUntilEvents(1);
    EXPECT_EQ(listener.last.longitude, -18.5);
    EXPECT_EQ(listener.last.speed, 1.25);
    EXPECT_EQ(listener.last.course, 270.5);
    mock.sendFix({{"Latitude", text("60")}, {"Longitude", number(1)}});
    mock.sendFix({{"Latitude", number(90.5)}, {"Longitude", number(1)}});
    mock.sendFix({{"Latitude", number(61)},
                  {"Longitude", number(1)},
                  {"Speed", number(-1)},
                  {"Heading", text("north")}});
    pumpUntilEvents(2);
    EXPECT_EQ(listener.last.speed, -1);
    EXPECT_EQ(listener.last.course, -1);
    mock.sendFix(at(62));
    ASSERT_TRUE(mock.wasCalled("GetAll", 5));
    service->stopUpdatingLocation();
    settle();
    EXPECT_THAT(listener.events, ElementsAre("1 at 59", "1 at 61"));
    EXPECT_TRUE(mock.wasCalled("DeleteClient"));
    EXPECT_EQ(mock.callsOf("CreateClient"), 1);
    const std::lock_guard lock(mutex);
    EXPECT_THAT(set, ElementsAre("DesktopId", "RequestedAccuracyLevel"));
}

TEST_F(LocationTest, ARefusalTurnsTheStatusAndThenFails) {
    GeoClueMock mock;
    mock.refuseStart("'com.example.host' disallowed by configuration for UID 0");
    makeService();
    service->startUpdatingLocation();
    pumpUntilEvents(2);
    EXPECT_THAT(listener.events, ElementsAre("status 2", "failed 2"));
    EXPECT_TRUE(location->locationServicesEnabled());

    listener.events.clear();
    listener.stopsOnChange = true;
    mock.refuseStart("Geolocation disabled for UID 0");
    service->startUpdatingLocation();
    pumpUntilEvents(1);
    settle();
    EXPECT_THAT(listener.events, ElementsAre("status 2")) << "stopped by its delegate";
    EXPECT_FALSE(location->locationServicesEnabled());

    listener.events.clear();
    listener.stopsOnChange = false;
    mock.onCall("Start", [](sd_bus_message* call) { reply(call, {}); });
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start", 3));
    mock.sendFix(at(59), "/client/3");
    pumpUntilEvents(2);
    EXPECT_THAT(listener.events, ElementsAre("status 4", "1 at 59")) << "allowed again";
}

TEST_F(LocationTest, ADaemonThatTakesItsTimeLosesNoFix) {
    GeoClueMock mock;
    const auto slowly = [](sd_bus_message* call) {
        std::this_thread::sleep_for(busCallTimeout * 3 / 2);
        reply(call, {});
    };
    mock.onCall("Set", slowly);
    mock.onCall("Stop", slowly);
    makeService();
    for (const char* client : {"/client/1", "/client/2"}) {
        service->startUpdatingLocation();
        ASSERT_TRUE(mock.wasCalled("Start", client[8] - '0'));
        mock.sendFix(at(59), client);
        pumpUntilEvents(static_cast<std::size_t>(client[8] - '0'));
        service->stopUpdatingLocation();
    }
    EXPECT_THAT(listener.events, ElementsAre("1 at 59", "1 at 59"));
}

TEST(LocationPermission, BelievesARefusalForSixtySeconds) {
    auto now = LocationPermission::Clock::now();
    LocationPermission permission([&now] { return now; });
    permission.noteUsable();
    permission.noteDenied();
    permission.noteSwitchedOff();
    now += std::chrono::seconds(59);
    EXPECT_EQ(permission.authorizationStatus(), 2);
    EXPECT_FALSE(permission.servicesEnabled());
    now += std::chrono::seconds(1);
    EXPECT_EQ(permission.authorizationStatus(), 4);
    EXPECT_TRUE(permission.servicesEnabled());
    permission.noteAbsent();
    EXPECT_EQ(permission.authorizationStatus(), 0);
    permission.noteAllowed();
    EXPECT_EQ(permission.authorizationStatus(), 4);
}

TEST_F(LocationTest, WithoutAnAnswerOrAFixItFailsInTime) {
    struct Case {
        const char* silent;
        const char* outcome;
    };
    for (const auto& [silent, outcome] :
         {Case{"CreateClient", "failed 3"}, Case{"Start", "failed 3"}, Case{"", "failed 3"}}) {
        SCOPED_TRACE(silent);
        GeoClueMock mock;
        mock.onCall(silent, [](sd_bus_message*) {});
        makeService(soon);
        service->startUpdatingLocation();
        pumpUntilEvents(1);
        EXPECT_THAT(listener.events, ElementsAre(outcome));
        listener.events.clear();
    }
}

TEST_F(LocationTest, AWrongAnswerADeathAndAnAbsentDaemonFail) {
    makeService();
    service->startUpdatingLocation();
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("failed 1")) << "nobody of that name";
    EXPECT_EQ(service->authorizationStatus(), 0);
    {
        GeoClueMock mock;
        mock.onCall("CreateClient", [](sd_bus_message* call) {
            reply(call, [](sd_bus_message* message) { sd_bus_message_append(message, "u", 7U); });
        });
        service->startUpdatingLocation();
        pumpUntilEvents(2);
        mock.onCall("CreateClient", [&mock](sd_bus_message*) { mock.die(); });
        service->startUpdatingLocation();
        pumpUntilEvents(3);
    }
    EXPECT_THAT(listener.events, ElementsAre("failed 1", "failed 99", "failed 3"));
}

TEST_F(LocationTest, AStopWhileItStartsDeletesTheClientThatComesLate) {
    GeoClueMock mock;
    sd_bus_message* pending = nullptr;
    mock.onCall("CreateClient", [&](sd_bus_message* call) { pending = sd_bus_message_ref(call); });
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("CreateClient"));
    service->stopUpdatingLocation();
    settle();
    mock.onCall("Poke", [&](sd_bus_message* call) {
        mock.createClient(pending);
        sd_bus_message_unref(pending);
        reply(call, {});
    });
    EXPECT_TRUE(bus->call({geoClue, "/", "a.b", "Poke", {}}).succeeded());
    EXPECT_TRUE(mock.wasCalled("DeleteClient"));
    EXPECT_EQ(mock.callsOf("Start"), 0);
    settle();
    EXPECT_THAT(listener.events, IsEmpty());
}

TEST_F(LocationTest, ARestartedDaemonIsTakenUpAgainAndALostBusFails) {
    auto mock = std::make_unique<GeoClueMock>();
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock->wasCalled("Start"));
    mock->sendFix(at(1));
    pumpUntilEvents(1);
    auto successor = std::make_unique<GeoClueMock>(MockService::Entry::later);
    successor->takeName();
    ASSERT_TRUE(successor->wasCalled("Start"));
    successor->sendFix(at(2));
    pumpUntilEvents(2);
    daemon.stop();
    pumpUntilEvents(3);
    EXPECT_THAT(listener.events, ElementsAre("1 at 1", "1 at 2", "failed 4"));
    service->startUpdatingLocation();
    pumpUntilEvents(4);
    EXPECT_EQ(listener.events.back(), "failed 1");
}

TEST_F(LocationTest, LocationSwitchedOffAndOnWhileItRunsIsToldAndFixesGoOn) {
    GeoClueMock mock;
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start"));
    mock.sendFix(at(1));
    pumpUntilEvents(1);
    mock.sendActive(false);
    pumpUntilEvents(2);
    EXPECT_FALSE(location->locationServicesEnabled());
    mock.sendActive(true);
    pumpUntilEvents(3);
    EXPECT_TRUE(location->locationServicesEnabled());
    mock.sendFix(at(2));
    pumpUntilEvents(4);
    EXPECT_THAT(listener.events, ElementsAre("1 at 1", "status 4", "status 4", "1 at 2"));
}

TEST_F(LocationTest, AnOldDaemonGivesTheConnectionsOneClient) {
    GeoClueMock mock;
    mock.onCall("CreateClient", [](sd_bus_message* call) {
        replyError(call, "org.freedesktop.DBus.Error.UnknownMethod", "no CreateClient");
    });
    mock.onCall("GetClient", [&mock](sd_bus_message* call) { mock.createClient(call); });
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start"));
    mock.sendFix(at(3));
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("1 at 3"));
}

TEST_F(LocationTest, ADelegateThatWentAndAServiceThatIsDroppedHearNothing) {
    GeoClueMock mock;
    makeService();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start"));
    service->setDelegate(nullptr);
    mock.sendFix(at(1));
    ASSERT_TRUE(mock.wasCalled("GetAll"));
    settle();
    service->setDelegate(&listener);
    mock.sendFix(at(2));
    pumpUntilEvents(1);
    mock.sendFix(at(3));
    ASSERT_TRUE(mock.wasCalled("GetAll", 3));
    service.reset();
    settle();
    EXPECT_TRUE(mock.wasCalled("DeleteClient")) << "nobody is left to stop it";
    EXPECT_THAT(listener.events, ElementsAre("1 at 2"));
}

} // namespace
} // namespace morvellacinto::native
