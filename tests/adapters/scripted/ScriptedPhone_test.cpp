#include "support/ScriptedPhoneTest.h"

#include <thread>

namespace morvellacinto::scripted {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ScriptedLocationTest : public ScriptedPhoneTest, public platform::LocationServiceDelegate {
protected:
    ScriptedLocationTest() { service->setDelegate(this); }

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

    void restart() {
        service->stopUpdatingLocation();
        service->startUpdatingLocation();
    }
    [[nodiscard]] std::vector<std::string> after(ScriptedClock::Duration duration) {
        phone->clock().advance(duration);
        phone->settle();
        return std::exchange(seen, {});
    }

    std::vector<std::string> seen;
    const std::shared_ptr<platform::LocationService> service =
        phone->locationServices().makeService();
};

TEST_F(ScriptedLocationTest, AnswersEachStartOnceAfterTheDelayUnlessStoppedBefore) {
    service->startUpdatingLocation();
    EXPECT_THAT(after(40ms), IsEmpty());
    restart();
    EXPECT_THAT(after(40ms), IsEmpty()) << "the first start's answer is not the second's";
    EXPECT_THAT(after(10ms), ElementsAre("1 fixes"));
    EXPECT_THAT(after(1h), IsEmpty());
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
    EXPECT_THAT(after(0s), ElementsAre("2 fixes", "lost"));
    service->stopUpdatingLocation();
    services.changeAuthorization(2);
    EXPECT_THAT(after(0s), ElementsAre("status 2"));
    phone->script()->systemVersion = "13.7";
    services.changeAuthorization(3);
    EXPECT_THAT(after(0s), IsEmpty()) << "older systems tell it in another way";
}

TEST_F(ScriptedPhoneTest, TheUserAnswersTheTrackingPromptInABackgroundBlock) {
    phone->script()->trackingAuthorization = 0;
    std::vector<std::uint64_t> answers;
    for (const std::optional<std::uint64_t> decision : {std::optional<std::uint64_t>(), {2}, {3}}) {
        phone->script()->trackingAnswer = decision;
        const auto before = phone->tracking().trackingAuthorizationStatus();
        phone->tracking().requestTrackingAuthorization(
            [&](std::uint64_t status) { answers.push_back(status); });
        EXPECT_EQ(phone->tracking().trackingAuthorizationStatus(), before) << "still thinking";
        phone->settle();
    }
    EXPECT_THAT(answers, ElementsAre(2, 2)) << "no answer, an answer, and that one stands";
    EXPECT_EQ(phone->tracking().requestCount(), 3);
}

TEST_F(ScriptedPhoneTest, VersionsCompareAsNumbers) {
    const struct {
        std::optional<std::string> version;
        int major;
        int minor;
        bool isAtLeast;
    } cases[] = {
        {"17.5", 17, 5, true},        {"17.5", 17, 6, false}, {"9.10", 9, 9, true},
        {"14", 14, 0, true},          {"beta", 1, 0, false},  {"13.9.9", 14, 0, false},
        {std::nullopt, 12, 0, false},
    };
    for (const auto& row : cases) {
        phone->script()->systemVersion = row.version;
        EXPECT_EQ(phone->systemVersion().isAtLeast(row.major, row.minor), row.isAtLeast)
            << row.version.value_or("none") << " against " << row.major << "." << row.minor;
    }
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
    });
    clock.schedule(90s, note);
    clock.advance(89.75s);
    EXPECT_THAT(fired, ElementsAre(1, 2, 3));
    clock.set(Date{start.secondsSinceReference + 1000});
    EXPECT_EQ(fired.size(), 3U) << "setting the date is not waiting";
    clock.advance(0.25s);
    EXPECT_THAT(fired, ElementsAre(1, 2, 3, 1000.25));
    EXPECT_THROW(clock.advance(-1s), std::invalid_argument);
}

TEST_F(ScriptedPhoneTest, AQueueIsRunByTheMainThreadAloneAndNotForEver) {
    std::thread([&] { EXPECT_THROW(phone->drainMain(), std::logic_error); }).join();
    std::function<void()> again = [&] { phone->dispatch().asyncMain(again); };
    again();
    EXPECT_THROW(phone->settle(), std::logic_error);
    phone->shutdown();
}

TEST_F(ScriptedPhoneTest, AnEscapedExceptionLeavesTheOtherBlocksQueued) {
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

} // namespace
} // namespace morvellacinto::scripted
