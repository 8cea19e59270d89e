#include "support/ScriptedPhoneTest.h"

#include <thread>

namespace morvellacinto::scripted {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Notified final : public platform::LocationServiceDelegate {
public:
    void locationManagerDidChangeAuthorization(platform::LocationService& manager) override {
        seen.push_back("status " + std::to_string(manager.authorizationStatus()));
    }
    void didUpdateLocations(platform::LocationService&,
                            const std::vector<platform::LocationFix>& locations) override {
        seen.push_back(std::to_string(locations.size()) + " fixes");
    }
    void didFailWithError(platform::LocationService&, const KRError& error) override {
        seen.push_back(error.domain);
    }

    std::vector<std::string> seen;
};

class ScriptedLocationTest : public ScriptedPhoneTest {
protected:
    ScriptedLocationTest() { service->setDelegate(&notified); }

    [[nodiscard]] std::vector<std::string> after(ScriptedClock::Duration duration) {
        phone->clock().advance(duration);
        phone->settle();
        return std::exchange(notified.seen, {});
    }

    Notified notified;
    const std::shared_ptr<platform::LocationService> service =
        phone->locationServices().makeService();
};

TEST_F(ScriptedLocationTest, AnswersEachStartOnceAfterTheDelayUnlessStoppedBefore) {
    service->startUpdatingLocation();
    EXPECT_THAT(after(40ms), IsEmpty());
    service->stopUpdatingLocation();
    service->startUpdatingLocation();
    EXPECT_THAT(after(40ms), IsEmpty()) << "the first start's answer is not the second's";
    EXPECT_THAT(after(10ms), ElementsAre("1 fixes"));
    EXPECT_THAT(after(1h), IsEmpty());
    EXPECT_TRUE(phone->locationServices().isUpdating());
    EXPECT_EQ(phone->locationServices().startCount(), 2);
    EXPECT_EQ(phone->locationServices().stopCount(), 1);

    const auto restart = [&] {
        service->stopUpdatingLocation();
        service->startUpdatingLocation();
    };
    phone->script()->location.fixes->clear();
    restart();
    EXPECT_THAT(after(1s), ElementsAre("0 fixes"));
    phone->script()->location.error = KRError{"lost", 1, {}};
    restart();
    EXPECT_THAT(after(1s), ElementsAre("lost"));
    phone->script()->location.delay = std::nullopt;
    restart();
    EXPECT_THAT(after(1h), IsEmpty());
}

TEST_F(ScriptedLocationTest, SpeaksByHandToClientsThatUpdateAndOfPermissionToAll) {
    auto& services = phone->locationServices();
    services.deliver({{1, 2, 3, 4}});
    EXPECT_THAT(after(0s), IsEmpty()) << "nothing was started";
    phone->script()->location.delay = std::nullopt;
    service->startUpdatingLocation();
    services.deliver({{1, 2, 3, 4}, {5, 6, 7, 8}});
    services.fail(KRError{"lost", 1, {}});
    EXPECT_THAT(notified.seen, IsEmpty()) << "never inside the call";
    EXPECT_THAT(after(0s), ElementsAre("2 fixes", "lost"));
    service->stopUpdatingLocation();
    services.changeAuthorization(2);
    EXPECT_THAT(after(0s), ElementsAre("status 2"));
    phone->script()->systemVersion = "13.7";
    services.changeAuthorization(3);
    EXPECT_THAT(after(0s), IsEmpty()) << "older systems tell it in another way";
    EXPECT_EQ(service->authorizationStatus(), 3);
}

TEST(ScriptedLocationServices, AClientThatOutlivesThemIsSilent) {
    ScriptedDispatch dispatch;
    const Scheduler atOnce = [](auto, const auto& block) { block(); };
    auto services = std::make_unique<ScriptedLocationServices>(std::make_shared<SharedScript>(),
                                                               dispatch, atOnce);
    const auto service = services->makeService();
    service->startUpdatingLocation();
    EXPECT_EQ(dispatch.waitingCount(), 1U);
    dispatch.drainMain();
    service->stopUpdatingLocation();
    services = nullptr;
    service->startUpdatingLocation();
    EXPECT_EQ(dispatch.waitingCount(), 0U);
    EXPECT_EQ(service->authorizationStatus(), 4);
}

TEST_F(ScriptedPhoneTest, TheUserAnswersTheTrackingPromptInABackgroundBlock) {
    phone->script()->trackingAuthorization = 0;
    phone->script()->trackingAnswer = 2;
    std::vector<std::uint64_t> answers;
    const auto ask = [&] {
        phone->tracking().requestTrackingAuthorization(
            [&](std::uint64_t status) { answers.push_back(status); });
    };
    ask();
    EXPECT_EQ(phone->tracking().trackingAuthorizationStatus(), 0U) << "still thinking";
    phone->settle();
    phone->script()->trackingAnswer = 3;
    ask();
    phone->settle();
    EXPECT_THAT(answers, ElementsAre(2, 2)) << "the first answer stands";
    EXPECT_EQ(phone->tracking().requestCount(), 2);

    phone->script()->trackingAuthorization = 0;
    phone->script()->trackingAnswer = std::nullopt;
    ask();
    phone->settle();
    EXPECT_EQ(answers.size(), 2U) << "the user never answers";
    phone->script()->trackingAnswer = 0;
    ask();
    EXPECT_THROW(phone->settle(), std::logic_error);
}

TEST_F(ScriptedPhoneTest, TheClockFiresInOrderOfTimeEachBlockAtItsOwnMoment) {
    ScriptedClock& clock = phone->clock();
    const Date start = clock.now();
    std::vector<double> fired;
    const auto note = [&] { fired.push_back(Date::secondsBetween(start, clock.now())); };
    clock.schedule(3s, note);
    clock.schedule(1s, [&] {
        note();
        clock.schedule(1s, note);
        clock.schedule(60s, note);
    });
    clock.advance(89.75s);
    EXPECT_THAT(fired, ElementsAre(1, 2, 3, 61));
    clock.advance(0.25s);
    EXPECT_EQ(Date::secondsBetween(start, clock.now()), 90.0);

    clock.schedule(1s, note);
    clock.set(Date{start.secondsSinceReference - 1000});
    clock.set(Date{start.secondsSinceReference + 1000});
    EXPECT_EQ(fired.size(), 4U) << "setting the date is not waiting";
    EXPECT_EQ(clock.now(), Date{start.secondsSinceReference + 1000});
    EXPECT_THROW(clock.advance(-1s), std::invalid_argument);
}

TEST_F(ScriptedPhoneTest, QueuesRunOnlyWhenTheTestSaysSoAndOnTheirOwnThreads) {
    std::vector<std::string> order;
    ScriptedDispatch& dispatch = phone->dispatch();
    dispatch.asyncGlobal([&] {
        order.push_back("background");
        dispatch.asyncMain([&] { order.push_back("main"); });
    });
    EXPECT_EQ(phone->drainMain(), 0U);
    EXPECT_EQ(phone->runBackground(), 1U);
    EXPECT_THAT(order, ElementsAre("background"));
    std::thread([&] { EXPECT_THROW(phone->drainMain(), std::logic_error); }).join();
    EXPECT_EQ(dispatch.waitingCount(), 1U);
    EXPECT_EQ(phone->drainMain(), 1U);

    std::function<void()> again = [&] { dispatch.asyncMain(again); };
    again();
    EXPECT_THROW(phone->settle(), std::logic_error) << "a queue that feeds itself";
    phone->shutdown();
}

TEST_F(ScriptedPhoneTest, AnEscapedExceptionIsRethrownAndTheOtherBlocksStay) {
    std::vector<int> ran;
    phone->dispatch().asyncGlobal([] { throw std::range_error("first"); });
    phone->dispatch().asyncGlobal([&] { ran.push_back(1); });
    phone->dispatch().asyncMain([] { throw std::domain_error("second"); });
    phone->dispatch().asyncMain([&] { ran.push_back(2); });
    EXPECT_EQ(phone->runBackground(), 2U);
    EXPECT_THROW(phone->drainMain(), std::range_error);
    EXPECT_THROW(phone->drainMain(), std::domain_error);
    phone->settle();
    EXPECT_THAT(ran, ElementsAre(1, 2));
}

TEST_F(ScriptedPhoneTest, DefaultsRecordFailAndTellWhatWasFlushed) {
    ScriptedUserDefaults& defaults = phone->standardUserDefaults();
    defaults.setObjectForKey("old", "key");
    EXPECT_TRUE(defaults.synchronize());
    defaults.failFlush(true);
    defaults.setObjectForKey("new", "key");
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_EQ(defaults.flushed().at("key"), Value("old"));
    defaults.failFlush(false);
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(defaults.flushed().at("key"), Value("new"));
    EXPECT_THAT(defaults.takeOperations(),
                ElementsAre("set key", "synchronize", "set key", "synchronize", "synchronize"));
    defaults.raiseOnSet(true);
    EXPECT_THROW(defaults.setObjectForKey("lost", "key"), std::runtime_error);
    defaults.raiseOnRemove(true);
    EXPECT_THROW(defaults.removeObjectForKey("key"), std::runtime_error);
    EXPECT_EQ(defaults.objectForKey("key"), Value("new"));
    defaults.raiseOnGet(true);
    EXPECT_THROW((void)defaults.objectForKey("key"), std::runtime_error);
    EXPECT_THAT(defaults.takeOperations(),
                ElementsAre("set key", "remove key", "get key", "get key"));
}

TEST_F(ScriptedPhoneTest, LogLinesAndFailedAssertionsAreKeptForTheTest) {
    phone->developerLog().log("first");
    phone->developerLog().log("second");
    expectLog({"first", "second"});
    expectLog({});
    phone->assertionHandler().returnAfterFailure(true);
    phone->assertionHandler().handleFailureInFunction("f", "file", 115, "text");
    EXPECT_THAT(phone->assertionHandler().takeFailures(),
                ElementsAre(ScriptedAssertionHandler::Failure{"f", "file", 115, "text"}));
}

} // namespace
} // namespace morvellacinto::scripted
