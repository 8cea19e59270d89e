// SPDX-License-Identifier: MIT
#include "morvellacinto/location/KRLocationManager.h"

#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {

struct Location : ScriptedPhoneTest {
    /// Records its calls as "key:latitude", "key:domain code" or "key:nothing".
    KRLocationManager::UpdateBlock recorder(const std::string& key, std::function<void()> then) {
        return [this, key, then = std::move(then)](const auto& fix,
                                                   const std::optional<KRError>& error) {
            calls.push_back(key + ':' +
                            (error ? error->domain + ' ' + std::to_string(error->code)
                             : fix ? std::to_string(int(fix->latitude))
                                   : "nothing"));
            then();
        };
    }
    void wait(
        const std::string& key, std::function<void()> then = [] {}) {
        KRLocationManager::shared().addLocationUpdateBlock(recorder(key, std::move(then)), key);
    }
    Texts settled() {
        phone->drainMain();
        return std::exchange(calls, {});
    }
    Texts afterFixes(const std::vector<platform::LocationFix>& fixes = {{1, 0, 0, 0}}) {
        services.deliver(fixes);
        return settled();
    }
    Texts afterFailure() {
        services.fail(KRError{"some.domain", 7, {}});
        return settled();
    }
    Texts afterAuthorization(std::int32_t status) {
        services.changeAuthorization(status);
        return settled();
    }
    static bool nobodyWaits() { return KRLocationManager::shared().updateBlocks().empty(); }

    Texts calls;
    scripted::ScriptedLocationServices& services = phone->locationServices();
};

TEST_F(Location, HandsTheNewestFixToEveryWaiterOnceAndStops) {
    wait("a");
    wait("b");
    EXPECT_EQ(services.startCount(), 2);
    EXPECT_THAT(afterFixes({{1, 0, 0, 0}, {2, 0, 0, 0}}), ElementsAre("a:2", "b:2"));
    EXPECT_EQ(services.stopCount(), 1);
    EXPECT_TRUE(nobodyWaits());
    EXPECT_EQ(KRLocationManager::shared().lastLocation(), std::nullopt);
    wait("c");
    EXPECT_THAT(afterFixes({}), ElementsAre("c:nothing"));
}

TEST_F(Location, StopsAfterAFailureWhichReachesOnlyTheLatestWaiterUnderAKey) {
    wait("a");
    wait("a");
    EXPECT_EQ(told(), Texts{"the callback that waited for a location under \"a\" is superseded by "
                            "a later one and not called"});
    EXPECT_EQ(services.startCount(), 2);
    EXPECT_THAT(afterFailure(), ElementsAre("a:some.domain 7"));
    EXPECT_EQ(services.stopCount(), 1);
    EXPECT_TRUE(nobodyWaits());
}

TEST_F(Location, KeepsWaitersWhenPermissionIsMissing) {
    wait("a");
    wait("b");
    phone->script()->systemVersion = "13.9";
    EXPECT_THAT(afterAuthorization(2), IsEmpty());
    phone->script()->systemVersion = "14.0";
    EXPECT_THAT(afterAuthorization(2), ElementsAre("a:se.kovra.error 0", "b:se.kovra.error 0"));
    EXPECT_EQ(services.stopCount(), 2);
    EXPECT_THAT(afterAuthorization(3), IsEmpty());
    KRLocationManager::shared().locationManager()->startUpdatingLocation();
    EXPECT_THAT(afterFixes(), ElementsAre("a:1", "b:1"));
}

TEST_F(Location, LogsOneLineAndCleansUpWhenAWaiterThrows) {
    const std::tuple<std::function<Texts()>, std::string, bool> cases[] = {
        {[this] { return afterFixes(); }, "location update failed", true},
        {[this] { return afterFailure(); }, "location error failed", true},
        {[this] { return afterAuthorization(1); }, "location auth failed", false}};
    int stops = 0;
    for (const auto& [notify, line, clearsAndStops] : cases) {
        wait("a", [] { throw 7; });
        wait("b");
        EXPECT_EQ(notify().size(), 1U) << line;
        expectLog({line});
        EXPECT_EQ(told(), Texts{line + ": something that is no std::exception was thrown"});
        EXPECT_EQ(nobodyWaits(), clearsAndStops) << line;
        EXPECT_EQ(services.stopCount(), stops += clearsAndStops ? 1 : 0) << line;
    }
}

TEST_F(Location, ToleratesWaitersThatChangeTheTableOrShutThePlatformDown) {
    wait("a", [this] {
        wait("a");
        wait("z");
    });
    wait("b");
    EXPECT_THAT(afterFixes(), ElementsAre("a:1", "b:1"));
    EXPECT_TRUE(nobodyWaits());
    wait("a", [] { platform::shutdown(); });
    wait("b");
    EXPECT_THAT(afterFixes(), ElementsAre("a:1"));
    const int starts = services.startCount();
    EXPECT_THROW(wait("a"), std::logic_error);
    EXPECT_TRUE(nobodyWaits());
    EXPECT_EQ(services.startCount(), starts);
}

TEST_F(Location, TakesWaitersBackAndStopsWithTheLastOne) {
    KRLocationManager& manager = KRLocationManager::shared();
    wait("a");
    wait("b");
    EXPECT_TRUE(manager.removeLocationUpdateBlock("a"));
    EXPECT_FALSE(manager.removeLocationUpdateBlock("a"));
    EXPECT_EQ(services.stopCount(), 0);
    EXPECT_TRUE(manager.removeLocationUpdateBlock("b"));
    EXPECT_EQ(services.stopCount(), 1);
    EXPECT_THAT(afterFixes(), IsEmpty());
}

TEST_F(Location, LooksForNoWaitersInAManagerThatIsGone) {
    std::shared_ptr<platform::LocationService> replaced;
    {
        KRLocationManager manager;
        replaced = manager.locationManager();
        manager.setLocationManager(services.makeService());
        manager.addLocationUpdateBlock(recorder("a", [] {}), "a");
    }
    replaced->startUpdatingLocation();
    EXPECT_THAT(afterFixes(), IsEmpty());
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
    const std::tuple<const char*, std::int32_t, const char*> cases[] = {{"14.0", 2, "reduced"},
                                                                        {"13.9", 4, "full"}};
    for (const auto& [version, status, accuracy] : cases) {
        phone->script()->systemVersion = version;
        EXPECT_EQ(KRLocationManager::authorizationStatus(), status) << version;
        EXPECT_EQ(KRLocationManager::accuracyAuthorization(), accuracy) << version;
    }
}

} // namespace morvellacinto
