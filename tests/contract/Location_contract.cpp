#include "contract/Contracts.h"

#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/LocationService.h"

#include <memory>
#include <vector>

namespace morvellacinto::contract {
namespace {

// Tells fixes and failures alike: which of them comes is the device's business.
class Notified final : public platform::LocationServiceDelegate {
public:
    explicit Notified(platform::Dispatch& dispatch) : dispatch_(dispatch) {}

    void locationManagerDidChangeAuthorization(platform::LocationService&) override {
        EXPECT_TRUE(dispatch_.isMainThread());
    }
    void didUpdateLocations(platform::LocationService& manager,
                            const std::vector<platform::LocationFix>&) override {
        notice(manager);
    }
    void didFailWithError(platform::LocationService& manager, const KRError& error) override {
        EXPECT_FALSE(error.domain.empty());
        notice(manager);
    }

    int count = 0;

private:
    void notice(platform::LocationService& manager) {
        EXPECT_TRUE(dispatch_.isMainThread());
        ++count;
        manager.stopUpdatingLocation();
    }

    platform::Dispatch& dispatch_;
};

TEST_P(LocationContract, AFixOrAFailureComesOnTheMainQueueAndNeverInsideACall) {
    Notified notified(platform().dispatch());
    const auto service = platform().locationServices().makeService();
    service->setDelegate(&notified);
    subject().settle();
    EXPECT_EQ(notified.count, 0) << "nothing was started";
    for (int round = 1; round <= 2; ++round) {
        service->startUpdatingLocation();
        service->startUpdatingLocation();
        EXPECT_EQ(notified.count, round - 1);
        ASSERT_TRUE(pumpUntil([&] { return notified.count == round; }));
    }
    service->setDelegate(nullptr);
}

TEST_P(LocationContract, NothingComesAfterStoppingOrFromAClientThatIsGone) {
    Notified notified(platform().dispatch());
    auto service = platform().locationServices().makeService();
    service->setDelegate(&notified);
    service->startUpdatingLocation();
    service->stopUpdatingLocation();
    subject().settle();
    EXPECT_EQ(notified.count, 0);
    service->startUpdatingLocation();
    service->setDelegate(nullptr);
    service.reset();
    subject().settle();
    EXPECT_EQ(notified.count, 0);
}

TEST_P(LocationContract, AClientAnswersAlsoAfterShutdownAndNotifiesNobodyThen) {
    Notified notified(platform().dispatch());
    const auto service = platform().locationServices().makeService();
    service->setDelegate(&notified);
    service->startUpdatingLocation();
    platform().shutdown();
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    EXPECT_GE(service->authorizationStatus(), platform::LocationAuthorization::notDetermined);
    EXPECT_GE(service->accuracyAuthorization(), platform::AccuracyAuthorization::full);
    subject().settle();
    EXPECT_EQ(notified.count, 0);
}

} // namespace
} // namespace morvellacinto::contract
