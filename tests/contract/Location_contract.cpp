#include "contract/Contracts.h"

#include "morvellacinto/platform/Dispatch.h"
#include "morvellacinto/platform/LocationService.h"

namespace morvellacinto::contract {
namespace {

// Counts fixes and failures alike: which of them comes is the device's business.
class Notified final : public platform::LocationServiceDelegate {
public:
    explicit Notified(platform::Dispatch& dispatch) : dispatch_(dispatch) {}

    void locationManagerDidChangeAuthorization(platform::LocationService&) override {}
    void didUpdateLocations(platform::LocationService& manager,
                            const std::vector<platform::LocationFix>&) override {
        notice(manager);
    }
    void didFailWithError(platform::LocationService& manager, const KRError&) override {
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

TEST_P(LocationContract, AFixOrAFailureComesOnTheMainQueueOnceForEachStart) {
    Notified notified(platform().dispatch());
    const auto service = platform().locationServices().makeService();
    service->setDelegate(&notified);
    for (int round = 1; round <= 2; ++round) {
        service->startUpdatingLocation();
        service->startUpdatingLocation();
        EXPECT_EQ(notified.count, round - 1) << "never inside the call";
        ASSERT_TRUE(pumpUntil([&] { return notified.count == round; }));
    }
    service->startUpdatingLocation();
    service->stopUpdatingLocation();
    subject().settle();
    EXPECT_EQ(notified.count, 2) << "nothing comes after stopping";
    service->setDelegate(nullptr);
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
    subject().settle();
    EXPECT_EQ(notified.count, 0);
}

} // namespace
} // namespace morvellacinto::contract
