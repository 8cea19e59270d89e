#include "MockService.h"
#include "PrivateBus.h"
#include "support/ShutdownLimit.h"

#include "bus/BusValues.h"
#include "location/NativeLocation.h"
#include "threads/MainQueue.h"
#include "threads/WorkerPool.h"

#include <morvellacinto/native/LocationError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace morvellacinto::native {
namespace {

using Clock = std::chrono::steady_clock;
using Refusal = LocationPermission::Refusal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* geoClue = "org.freedesktop.GeoClue2";
constexpr const char* managerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char* managerInterface = "org.freedesktop.GeoClue2.Manager";
constexpr const char* clientPath = "/org/freedesktop/GeoClue2/Client/1";
constexpr const char* clientInterface = "org.freedesktop.GeoClue2.Client";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr std::chrono::milliseconds soon(300);
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

    void start(std::chrono::milliseconds timeout = generous,
               const std::optional<std::string>& bundle = "com.example.host") {
        location = std::make_shared<NativeLocation>(
            queue, daemon.bus, workers, LocationOptions{bundle, timeout, [] { return true; }});
        service = location->makeService();
        service->setDelegate(&listener);
        service->startUpdatingLocation();
    }
    void pumpUntil(const std::function<bool()>& done) {
        const auto limit = Clock::now() + generous;
        queue->drain();
        while (!done() && Clock::now() < limit) {
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

// A daemon whose client starts at once.
class GeoClueMock : public MockService {
public:
    GeoClueMock() : MockService(geoClue) {
        onCreateClient(answer("o", clientPath));
        onCall(clientPath, properties, "Set", [this](sd_bus_message* call) {
            const char* name = nullptr;
            sd_bus_message_read(call, "ss", nullptr, &name);
            set += std::string(name) + " ";
            sd_bus_reply_method_return(call, "");
        });
        onStart(answer(""));
    }

    void onCreateClient(Method method) {
        onCall(managerPath, managerInterface, "CreateClient", std::move(method));
    }
    void onStart(Method method) { onCall(clientPath, clientInterface, "Start", std::move(method)); }
    void refuse(const char* message) {
        onStart([message](sd_bus_message* call) {
            sd_bus_reply_method_errorf(call, SD_BUS_ERROR_ACCESS_DENIED, "%s", message);
        });
    }
    template <class... Properties>
    void sendLocation(int count, Properties... each) {
        const std::string where = clientPath + ("/Location/" + std::to_string(++locations_));
        onCall(where, "org.freedesktop.GeoClue2.Location", "GetAll",
               answer("a{sv}", count, each...));
        send([&](sd_bus* bus) {
            sd_bus_emit_signal(bus, clientPath, clientInterface, "LocationUpdated", "oo", "/",
                               where.c_str());
        });
    }
    void sendFix(double latitude) {
        sendLocation(2, "Latitude", "d", latitude, "Longitude", "d", 18.07);
    }
    void sendActive(int isActive) {
        send([&](sd_bus* bus) {
            sd_bus_emit_signal(bus, clientPath, properties, "PropertiesChanged", "sa{sv}as",
                               clientInterface, 1, "Active", "b", isActive, 0);
        });
    }

    std::string set; // to be read after a start

private:
    int locations_ = 0;
};

TEST(LocationPermission, BelievesARefusalForSixtySecondsAndASuccessAtOnce) {
    auto now = Clock::now();
    bool exists = false;
    LocationPermission permission([&] { return exists; }, [&] { return now; });
    const auto stands = [&] {
        return std::pair(permission.authorizationStatus(), permission.servicesEnabled());
    };
    EXPECT_EQ(stands(), std::pair(0, false));
    exists = true;
    for (const auto& [refusal, refused] : {std::pair(Refusal::absent, std::pair(0, false)),
                                           std::pair(Refusal::denied, std::pair(2, true)),
                                           std::pair(Refusal::switchedOff, std::pair(4, false))}) {
        permission.note(refusal);
        now += std::chrono::seconds(59);
        EXPECT_EQ(stands(), refused);
        now += std::chrono::seconds(1);
        EXPECT_FALSE(permission.noteAllowed());
        permission.note(refusal);
        EXPECT_TRUE(permission.noteAllowed());
        EXPECT_EQ(stands(), std::pair(4, true));
    }
}

TEST_F(LocationTest, FixesComeUntilStopAndNoneWhileLocationIsSwitchedOff) {
    GeoClueMock mock;
    start();
    service->startUpdatingLocation();
    EXPECT_THAT(listener.events, IsEmpty()) << "never inside the call";
    ASSERT_TRUE(mock.wasCalled("Start"));
    EXPECT_EQ(mock.set, "DesktopId RequestedAccuracyLevel ");
    mock.sendLocation(4, "Latitude", "d", 59.5, "Longitude", "d", -18.5, "Speed", "d", 1.25,
                      "Heading", "d", 270.5);
    pumpUntilEvents(1);
    EXPECT_EQ(listener.last.longitude, -18.5);
    EXPECT_EQ(listener.last.speed, 1.25);
    EXPECT_EQ(listener.last.course, 270.5);
    mock.sendLocation(2, "Latitude", "s", "60", "Longitude", "d", 1.0);
    mock.sendFix(90.5);
    mock.sendLocation(4, "Latitude", "d", 61.0, "Longitude", "d", 1.0, "Speed", "d", -1.0,
                      "Heading", "s", "north");
    pumpUntilEvents(2);
    EXPECT_EQ(listener.last.speed, -1);
    EXPECT_EQ(listener.last.course, -1);
    EXPECT_EQ(listener.last.time, std::nullopt);
    EXPECT_EQ(listener.last.horizontalAccuracy, std::nullopt);
    mock.sendFix(62);
    mock.sendActive(false);
    for (const auto limit = Clock::now() + generous; location->locationServicesEnabled();) {
        ASSERT_LT(Clock::now(), limit);
        std::this_thread::yield();
    }
    pumpUntilEvents(3);
    mock.sendActive(true);
    pumpUntilEvents(4);
    EXPECT_TRUE(location->locationServicesEnabled());
    mock.sendFix(63);
    pumpUntilEvents(5);
    mock.sendFix(64);
    ASSERT_TRUE(mock.wasCalled("GetAll", 7));
    service->stopUpdatingLocation();
    finish();
    EXPECT_THAT(listener.events, ElementsAre("at 59", "at 61", "status 4", "status 4", "at 63"));
    EXPECT_EQ(mock.callsOf("CreateClient"), 1);
}

TEST_F(LocationTest, ARefusalTurnsTheStatusAndThenFails) {
    GeoClueMock mock;
    mock.refuse("'com.example.host' disallowed by configuration for UID 0");
    start();
    pumpUntilEvents(2);
    EXPECT_TRUE(location->locationServicesEnabled());
    listener.stopsOnChange = true;
    mock.refuse("Geolocation disabled for UID 0");
    service->startUpdatingLocation();
    pumpUntilEvents(3);
    EXPECT_FALSE(location->locationServicesEnabled());
    listener.stopsOnChange = false;
    mock.onStart(answer(""));
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start", 3));
    mock.sendFix(59);
    pumpUntilEvents(5);
    EXPECT_THAT(listener.events,
                ElementsAre("status 2", "failed 2", "status 2", "status 4", "at 59"))
        << "refused, stopped by its delegate, then allowed again";
}

TEST_F(LocationTest, WithoutAnAnswerOrAFixItFailsInTimeAndTheTimeEndsWithTheFirstFix) {
    GeoClueMock mock;
    start(soon);
    pumpUntilEvents(1);
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start", 2));
    mock.sendFix(1);
    const auto limit = Clock::now() + 2 * soon;
    pumpUntil([&] { return Clock::now() > limit; });
    mock.sendFix(2);
    pumpUntilEvents(3);
    service->stopUpdatingLocation();
    mock.onStart([](sd_bus_message*) {});
    service->startUpdatingLocation();
    pumpUntilEvents(4);
    mock.onCreateClient([](sd_bus_message*) {});
    service->startUpdatingLocation();
    pumpUntilEvents(5);
    EXPECT_THAT(listener.events, ElementsAre("failed 3", "at 1", "at 2", "failed 3", "failed 3"));
}

TEST_F(LocationTest, AFixThatWasOldAtTheStartIsNoneAndTheNextOneTellsTimeAndAccuracy) {
    GeoClueMock mock;
    start(soon);
    const auto sendOfAge = [&](std::chrono::seconds age) {
        const auto time = std::chrono::system_clock::now() - age;
        const auto seconds = std::chrono::ceil<std::chrono::seconds>(time.time_since_epoch());
        mock.sendLocation(4, "Latitude", "d", 59.5, "Longitude", "d", 18.5, "Accuracy", "d", 12.5,
                          "Timestamp", "(tt)", std::uint64_t(seconds.count()), std::uint64_t(500));
        return static_cast<double>(seconds.count()) + 500e-6;
    };
    ASSERT_TRUE(mock.wasCalled("Start"));
    sendOfAge(std::chrono::hours(2));
    sendOfAge(platform::maximumFixAge + std::chrono::seconds(20));
    pumpUntilEvents(1);
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("Start", 2));
    sendOfAge(std::chrono::hours(2));
    const double time = sendOfAge(platform::maximumFixAge - std::chrono::seconds(20));
    pumpUntilEvents(2);
    EXPECT_THAT(listener.events, ElementsAre("failed 3", "at 59"));
    EXPECT_EQ(listener.last.time, Date{time});
    EXPECT_EQ(listener.last.horizontalAccuracy, 12.5);
}

TEST_F(LocationTest, AbsenceADeathAndALostBusFail) {
    start(generous, std::nullopt);
    EXPECT_THAT(listener.events, IsEmpty()) << "never inside the call";
    pumpUntilEvents(1); // no bundle identifier
    EXPECT_EQ(service->authorizationStatus(), 0);
    start();
    pumpUntilEvents(2); // nobody of that name
    EXPECT_EQ(service->authorizationStatus(), 0);
    auto mock = std::make_unique<GeoClueMock>();
    start();
    ASSERT_TRUE(mock->wasCalled("Start"));
    mock->sendFix(1);
    pumpUntilEvents(3);
    mock = std::make_unique<GeoClueMock>(); // the daemon ends and another comes
    pumpUntilEvents(4);
    service->startUpdatingLocation();
    ASSERT_TRUE(mock->wasCalled("Start"));
    mock->sendFix(2);
    pumpUntilEvents(5);
    daemon.stop();
    pumpUntilEvents(6);
    EXPECT_THAT(listener.events,
                ElementsAre("failed 1", "failed 1", "at 1", "failed 4", "at 2", "failed 4"));
}

TEST_F(LocationTest, AStopWhileItStartsAndAServiceThatIsDroppedEndTheRunAtOnce) {
    GeoClueMock mock;
    mock.onCreateClient([](sd_bus_message*) {});
    start();
    ASSERT_TRUE(mock.wasCalled("CreateClient"));
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    ASSERT_TRUE(mock.wasCalled("CreateClient", 2));
    service.reset();
    const auto before = Clock::now();
    finish();
    EXPECT_LT(Clock::now() - before, testing::shutdownLimit);
    EXPECT_EQ(mock.callsOf("Start"), 0);
    EXPECT_THAT(listener.events, IsEmpty());
    EXPECT_EQ(location->authorizationStatus(), 4) << "a stop tells nothing of the service";
}

constexpr const char* daemonProgram = "/usr/libexec/geoclue";
// What a receiver says when it is at that latitude, in degrees and minutes, at that time.
std::string positionSentence(const char* latitude, std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 7> clock{};
    std::strftime(clock.data(), clock.size(), "%H%M%S", &utc);
    const std::string text = std::string("GPGGA,") + clock.data() + ".000," + latitude +
                             ",N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,";
    unsigned sum = 0;
    for (const char c : text) {
        sum ^= static_cast<unsigned>(c);
    }
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02X", sum);
    return "$" + text + "*" + digits.data() + "\r\n";
}

// The real daemon, which takes its positions from a socket of the test's.
class RealGeoClue : public LocationTest {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(daemonProgram) || unshare(CLONE_NEWNET) != 0) {
            GTEST_SKIP() << "no " << daemonProgram << ", or no network namespace to keep it in";
        }
        const std::string where = (daemon.folder.path() / "nmea").string();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        where.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(listener_, 4), 0);
        geoClueDaemon.emplace(std::vector<std::string>{daemonProgram, "-u", where});
        const BusCall question = readProperties(geoClue, managerPath, managerInterface);
        pumpUntil([&] { return BusConnection(daemon.bus).call(question).succeeded(); });
    }
    ~RealGeoClue() override { close(listener_); }

    // What speaks for the user: `maximum` is the finest accuracy that they allow, 0 none.
    void startAgent(unsigned maximum) {
        agent.emplace("com.example.Agent");
        agent->onCall("/org/freedesktop/GeoClue2/Agent", "org.freedesktop.GeoClue2.Agent", "GetAll",
                      answer("a{sv}", 1, "MaxAccuracyLevel", "u", maximum));
        agent->send([](sd_bus* bus) {
            sd_bus_call_method_async(bus, nullptr, geoClue, managerPath, managerInterface,
                                     "AddAgent", nullptr, nullptr, "s", "geoclue-demo-agent");
        });
        ASSERT_TRUE(agent->wasCalled("GetAll"));
    }

    const int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::optional<testing::ChildProcess> geoClueDaemon;
    std::optional<MockService> agent;
};

TEST_F(RealGeoClue, DeliversThePositionThatItIsFedUnlessItIsOld) {
    startAgent(8);
    start();
    const int receiver = accept(listener_, nullptr, nullptr);
    const auto feed = [&](const char* latitude, std::chrono::hours age) {
        const auto text = positionSentence(latitude, std::chrono::system_clock::now() - age);
        EXPECT_EQ(send(receiver, text.data(), text.size(), MSG_NOSIGNAL), std::ssize(text));
    };
    feed("5421.6802", std::chrono::hours(2));
    const auto limit = Clock::now() + soon;
    pumpUntil([&] { return Clock::now() > limit; });
    feed("5321.6802", std::chrono::hours(0));
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("at 53"));
    EXPECT_NEAR(listener.last.latitude, 53.361337, 1e-6);
    EXPECT_NEAR(listener.last.longitude, -6.505620, 1e-6);
    service->stopUpdatingLocation();
    char rest = 0;
    EXPECT_EQ(read(receiver, &rest, 1), 0) << "the daemon lets go of its source when nobody asks";
    close(receiver);
}

TEST_F(RealGeoClue, WithoutAnAgentItNeverAnswersAndSwitchedOffByTheUserItRefuses) {
    start(soon);
    pumpUntilEvents(1);
    EXPECT_THAT(listener.events, ElementsAre("failed 3"));
    startAgent(0);
    start();
    pumpUntilEvents(3);
    EXPECT_THAT(listener.events, ElementsAre("failed 3", "status 2", "failed 2"));
    EXPECT_FALSE(location->locationServicesEnabled());
}

TEST(LocationPermission, HasTheServiceAskedOnceASecondUnlessItRefusedTheApplicationAlone) {
    auto now = Clock::now();
    int asked = 0;
    LocationPermission permission([] { return true; }, [&] { return now; }, [&] { ++asked; });
    for (const auto& [refusal, questions] :
         {std::pair(Refusal::denied, 0), std::pair(Refusal::absent, 3),
          std::pair(Refusal::switchedOff, 3)}) {
        permission.note(refusal);
        asked = 0;
        for (int step = 0; step < 35; ++step) {
            now += std::chrono::milliseconds(100);
            static_cast<void>(permission.authorizationStatus());
        }
        EXPECT_EQ(asked, questions);
        permission.noteAllowed();
    }
}

TEST_F(LocationTest, AServiceThatIsBackCountsAsOnOnceTheStatusIsAskedFor) {
    start();
    pumpUntilEvents(1);
    EXPECT_FALSE(location->locationServicesEnabled()) << "nobody of that name";
    GeoClueMock mock;
    pumpUntil([&] { return location->locationServicesEnabled(); });
    mock.refuse("Geolocation disabled for UID 0");
    start();
    pumpUntilEvents(3);
    pumpUntil([&] { return !location->locationServicesEnabled() && mock.callsOf("Start") == 3; });
    mock.onStart(answer(""));
    pumpUntil([&] { return location->authorizationStatus() == 4; });
    EXPECT_TRUE(location->locationServicesEnabled());
    EXPECT_THAT(listener.events, ElementsAre("failed 1", "status 2", "failed 2"));
}

} // namespace
} // namespace morvellacinto::native
