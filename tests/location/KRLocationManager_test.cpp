#include "morvellacinto/location/KRLocationManager.h"

#include "support/ScriptedPhoneTest.h"

#include <gmock/gmock.h>

#include <thread>

namespace morvellacinto {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Location : public ScriptedPhoneTest {
protected:
    // Adds a waiter that records its calls as "key:latitude", "key:domain code" or "key:nothing".
    void wait(
        const std::string& key, const std::function<void()>& then = [] {}) {
        KRLocationManager::shared().addLocationUpdateBlock(
            [this, key, then](const auto& fix, const std::optional<KRError>& error) {
                calls.push_back(key + ":" +
                                (fix     ? std::to_string(static_cast<int>(fix->latitude))
                                 : error ? error->domain + " " + std::to_string(error->code)
                                         : "nothing"));
                then();
            },
            key);
    }

    std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }
    bool nobodyWaits() { return KRLocationManager::shared().updateBlocks().empty(); }

    std::vector<std::string> calls;
};

TEST_F(Location, handsTheNewestFixToEveryWaiterOnce) {
    wait("a");
    wait("b");
    phone->locationServices().deliver({{1, 0, 0, 0}, {2, 0, 0, 0}});
    phone->drainMain();
    EXPECT_THAT(takeCalls(), ElementsAre("a:2", "b:2"));
    EXPECT_TRUE(nobodyWaits());
    EXPECT_EQ(phone->locationServices().startCount(), 2);
    EXPECT_EQ(phone->locationServices().stopCount(), 1);
    EXPECT_EQ(KRLocationManager::shared().lastLocation(), std::nullopt);
}

TEST_F(Location, handsOutNothingForAnEmptyListOfFixes) {
    wait("a");
    phone->locationServices().deliver({});
    phone->drainMain();
    EXPECT_THAT(takeCalls(), ElementsAre("a:nothing"));
    EXPECT_TRUE(nobodyWaits());
}

TEST_F(Location, callsNoFurtherWaiterOnceOneHasShutThePlatformDown) {
    wait("a", [] { platform::shutdown(); });
    wait("b");
    phone->locationServices().deliver({{1, 0, 0, 0}});
    phone->drainMain();
    EXPECT_THAT(takeCalls(), ElementsAre("a:1"));
}

TEST_F(Location, replacesAWaiterUnderTheSameKeyWithoutACall) {
    wait("a", [this] { calls.emplace_back("first"); });
    wait("a");
    phone->locationServices().fail(KRError{"some.domain", 7, {}});
    phone->drainMain();
    EXPECT_THAT(takeCalls(), ElementsAre("a:some.domain 7"));
    EXPECT_EQ(phone->locationServices().startCount(), 2);
    EXPECT_EQ(phone->locationServices().stopCount(), 1);
    EXPECT_TRUE(nobodyWaits());
}

TEST_F(Location, keepsWaitersWhenPermissionIsMissing) {
    wait("a");
    wait("b");
    phone->locationServices().changeAuthorization(2);
    phone->drainMain();
    EXPECT_THAT(takeCalls(), ElementsAre("a:se.kovra.error 0", "b:se.kovra.error 0"));
    EXPECT_EQ(phone->locationServices().stopCount(), 2);
    phone->locationServices().changeAuthorization(3);
    phone->drainMain();
    EXPECT_THAT(takeCalls(), IsEmpty());
    KRLocationManager::shared().locationManager()->startUpdatingLocation();
    phone->locationServices().deliver({{3, 0, 0, 0}});
    phone->drainMain();
    EXPECT_THAT(takeCalls(), ElementsAre("a:3", "b:3"));
}

TEST_F(Location, logsOneLineAndCleansUpWhenAWaiterThrows) {
    const auto throws = [] { throw std::runtime_error("host"); };
    const struct {
        std::function<void()> notify;
        const char* line;
        bool clears;
    } cases[] = {
        {[this] {
             phone->locationServices().deliver({{1, 0, 0, 0}});
         },
         "location update failed", true},
        {[this] {
             phone->locationServices().fail(KRError{"d", 1, {}});
         },
         "location error failed", true},
        {[this] { phone->locationServices().changeAuthorization(1); }, "location auth failed",
         false},
    };
    for (const auto& expected : cases) {
        wait("a", throws);
        wait("b");
        expected.notify();
        phone->drainMain();
        EXPECT_EQ(takeCalls().size(), 1U) << expected.line;
        EXPECT_THAT(phone->takeLog(), ElementsAre(expected.line));
        EXPECT_EQ(nobodyWaits(), expected.clears) << expected.line;
    }
}

TEST_F(Location, toleratesWaitersThatChangeTheTable) {
    wait("a", [this] {
        wait("a");
        wait("z");
    });
    wait("b");
    phone->locationServices().deliver({{1, 0, 0, 0}});
    phone->drainMain();
    EXPECT_THAT(takeCalls(), ElementsAre("a:1", "b:1"));
    EXPECT_TRUE(nobodyWaits());
}

TEST_F(Location, mayBeUsedOnlyWhenSwitchedOnAndGranted) {
    const struct {
        bool on;
        std::int32_t status;
        bool usable;
    } cases[] = {{true, 0, false}, {true, 1, false}, {true, 2, false}, {true, 3, true},
                 {true, 4, true},  {true, 5, true},  {false, 3, false}};
    for (const char* version : {"14.0", "13.9"}) {
        phone->script()->systemVersion = version;
        for (const auto& [on, status, usable] : cases) {
            phone->script()->location.servicesEnabled = on;
            phone->script()->location.authorizationStatus = status;
            EXPECT_EQ(KRLocationManager::locationServiceEnabled(), usable)
                << version << ' ' << on << ' ' << status;
            EXPECT_EQ(KRLocationManager::authorizationStatus(), status);
        }
    }
}

TEST_F(Location, isReducedOnlyFromFourteenOn) {
    phone->script()->location.accuracyAuthorization = 1;
    EXPECT_EQ(KRLocationManager::accuracyAuthorization(), "reduced");
    phone->script()->systemVersion = "14.0";
    EXPECT_EQ(KRLocationManager::accuracyAuthorization(), "reduced");
    phone->script()->systemVersion = "13.9";
    EXPECT_EQ(KRLocationManager::accuracyAuthorization(), "full");
}

TEST_F(Location, hasOneSharedInstanceAlsoWhenFirstCallsRace) {
    std::vector<KRLocationManager*> seen(8);
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot] { slot = &KRLocationManager::shared(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(seen, ::testing::Each(&KRLocationManager::shared()));
}

} // namespace
} // namespace morvellacinto
