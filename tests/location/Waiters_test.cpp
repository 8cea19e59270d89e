#include "morvellacinto/location/KRLocationManager.h"

#include "support/ScriptedPhoneTest.h"

namespace morvellacinto {
namespace {

class Waiters : public ScriptedPhoneTest {
protected:
    int calls = 0;
    KRLocationManager::UpdateBlock count = [this](const auto&, const auto&) { ++calls; };
};

TEST_F(Waiters, areTakenBackAndTheLastOneStopsUpdates) {
    KRLocationManager& manager = KRLocationManager::shared();
    manager.addLocationUpdateBlock(count, "a");
    manager.addLocationUpdateBlock(count, "b");
    EXPECT_TRUE(manager.removeLocationUpdateBlock("a"));
    EXPECT_FALSE(manager.removeLocationUpdateBlock("a"));
    EXPECT_EQ(phone->locationServices().stopCount(), 0);
    EXPECT_TRUE(manager.removeLocationUpdateBlock("b"));
    EXPECT_EQ(phone->locationServices().stopCount(), 1);
    EXPECT_EQ(calls, 0);
}

TEST_F(Waiters, areRefusedAfterAShutdown) {
    KRLocationManager& manager = KRLocationManager::shared();
    platform::shutdown();
    EXPECT_THROW(manager.addLocationUpdateBlock(count, "a"), std::logic_error);
    EXPECT_TRUE(manager.updateBlocks().empty());
    EXPECT_EQ(phone->locationServices().startCount(), 0);
}

TEST_F(Waiters, areNotLookedForInAManagerThatIsGone) {
    std::shared_ptr<platform::LocationService> replaced;
    {
        KRLocationManager manager;
        replaced = manager.locationManager();
        manager.setLocationManager(phone->locationServices().makeService());
        manager.addLocationUpdateBlock(count, "a");
    }
    replaced->startUpdatingLocation();
    phone->locationServices().deliver({{1, 0, 0, 0}});
    phone->drainMain();
    EXPECT_EQ(calls, 0);
}

} // namespace
} // namespace morvellacinto
