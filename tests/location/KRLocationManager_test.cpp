#include "morvellacinto/location/KRLocationManager.h"

#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

class Location : public ScriptedPhoneTest {
protected:
    /// Adds a waiter that records its calls as "key:latitude", "key:domain code" or "key:nothing".
    void wait(
        const std::string& key, const std::function<void()>& then = [] {}) {
        KRLocationManager::shared().addLocationUpdateBlock(
            [this, key, then](const auto& fix, const std::optional<KRError>& error) {
                calls.push_back(key + ':' +
                                (error ? error->domain + ' ' + std::to_string(error->code)
                                 : fix ? std::to_string(int(fix->latitude))
                                       : "nothing"));
                then();
            },
            key);
    }
    std::vector<std::string> settled() {
        phone->drainMain();
        return std::exchange(calls, {});
    }
    std::vector<std::string> afterFixes(std::vector<platform::LocationFix> fixes) {
        phone->locationServices().deliver(std::move(fixes));
        return settled();
    }
    std::vector<std::string> afterFailure() {
        phone->locationServices().fail(KRError{"some.domain", 7, {}});
        return settled();
    }
    std::vector<std::string> afterAuthorization(std::int32_t status) {
        phone->locationServices().changeAuthorization(status);
        return settled();
    }
    bool nobodyWaits() { return KRLocationManager::shared().updateBlocks().empty(); }

    std::vector<std::string> calls;
};

TEST_F(Location, HandsTheNewestFixToEveryWaiterOnceAndStops) {
    wait("a");
    wait("b");
    EXPECT_EQ(phone->locationServices().startCount(), 2);
    EXPECT_THAT(afterFixes({{1, 0, 0, 0}, {2, 0, 0, 0}}), ElementsAre("a:2", "b:2"));
    EXPECT_EQ(phone->locationServices().stopCount(), 1);
    EXPECT_TRUE(nobodyWaits());
    EXPECT_EQ(KRLocationManager::shared().lastLocation(), std::nullopt);
    wait("c");
    EXPECT_THAT(afterFixes({}), ElementsAre("c:nothing"));
}

TEST_F(Location, AFailureStopsAndReachesOnlyTheLatestWaiterUnderAKey) {
    wait("a", [this] { calls.emplace_back("first"); });
    wait("a");
    EXPECT_EQ(phone->locationServices().startCount(), 2);
    EXPECT_THAT(afterFailure(), ElementsAre("a:some.domain 7"));
    EXPECT_EQ(phone->locationServices().stopCount(), 1);
    EXPECT_TRUE(nobodyWaits());
}

TEST_F(Location, KeepsWaitersWhenPermissionIsMissing) {
    wait("a");
    wait("b");
    EXPECT_THAT(afterAuthorization(2), ElementsAre("a:se.kovra.error 0", "b:se.kovra.error 0"));
    EXPECT_EQ(phone->locationServices().stopCount(), 2);
    EXPECT_THAT(afterAuthorization(3), IsEmpty());
    phone->script()->systemVersion = "13.9";
    EXPECT_THAT(afterAuthorization(2), IsEmpty()) << "tells nobody of it";
    KRLocationManager::shared().locationManager()->startUpdatingLocation();
    EXPECT_THAT(afterFixes({{3, 0, 0, 0}}), ElementsAre("a:3", "b:3"));
}

TEST_F(Location, LogsOneLineAndCleansUpWhenAWaiterThrows) {
    const auto throws = [] { throw std::runtime_error("host"); };
    const std::tuple<std::function<std::vector<std::string>()>, std::string, bool> cases[] = {
        {[this] {
             return afterFixes({{1, 0, 0, 0}});
         },
         "location update failed", true},
        {[this] { return afterFailure(); }, "location error failed", true},
        {[this] { return afterAuthorization(1); }, "location auth failed", false},
    };
    int stops = 0;
    for (const auto& [notify, line, clearsAndStops] : cases) {
        wait("a", throws);
        wait("b");
        EXPECT_EQ(notify().size(), 1U) << line;
        expectLog({line});
        EXPECT_EQ(nobodyWaits(), clearsAndStops) << line;
        EXPECT_EQ(phone->locationServices().stopCount(), stops += clearsAndStops ? 1 : 0) << line;
    }
}

TEST_F(Location, ToleratesWaitersThatChangeTheTableOrShutThePlatformDown) {
    wait("a", [this] {
        wait("a");
        wait("z");
    });
    wait("b");
    EXPECT_THAT(afterFixes({{1, 0, 0, 0}}), ElementsAre("a:1", "b:1"));
    EXPECT_TRUE(nobodyWaits());
    wait("a", [] { platform::shutdown(); });
    wait("b");
    EXPECT_THAT(afterFixes({{1, 0, 0, 0}}), ElementsAre("a:1"));
}

TEST_F(Location, MayBeUsedOnlyWhenSwitchedOnAndGranted) {
    for (const std::int32_t status : {0, 1, 2, 5, 4, 3}) {
        phone->script()->location.authorizationStatus = status;
        EXPECT_EQ(KRLocationManager::locationServiceEnabled(), status >= 3) << status;
    }
    phone->script()->location.servicesEnabled = false;
    EXPECT_FALSE(KRLocationManager::locationServiceEnabled());
}

TEST_F(Location, AsksTheManagersOwnServiceFromFourteenOn) {
    const auto other = scripted::ScriptedPhone::create();
    other->script()->location.authorizationStatus = 2;
    other->script()->location.accuracyAuthorization = 1;
    KRLocationManager::shared().setLocationManager(other->locationServices().makeService());
    phone->script()->systemVersion = "14.0";
    EXPECT_EQ(KRLocationManager::authorizationStatus(), 2);
    EXPECT_EQ(KRLocationManager::accuracyAuthorization(), "reduced");
    phone->script()->systemVersion = "13.9";
    EXPECT_EQ(KRLocationManager::authorizationStatus(), 4);
    EXPECT_EQ(KRLocationManager::accuracyAuthorization(), "full");
}

} // namespace
} // namespace morvellacinto
