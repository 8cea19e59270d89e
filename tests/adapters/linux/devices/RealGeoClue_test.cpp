#include "LocationFixture.h"

#include <filesystem>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace morvellacinto::native {
namespace {

using ::testing::ElementsAre;

constexpr const char* daemonProgram = "/usr/libexec/geoclue";
constexpr const char* agentPath = "/org/freedesktop/GeoClue2/Agent";
constexpr const char* managerPath = "/org/freedesktop/GeoClue2/Manager";
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
        agent->call(geoClue, managerPath, "org.freedesktop.GeoClue2.Manager", "AddAgent",
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
