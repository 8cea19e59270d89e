// SPDX-License-Identifier: MIT
#include "support/ScriptedPhoneTest.h"

#include <thread>

namespace morvellacinto::scripted {

struct AScriptedPhone : ScriptedPhoneTest,
                        platform::HttpSessionDelegate,
                        platform::LocationServiceDelegate {
    AScriptedPhone() {
        location->setDelegate(this);
        phone->http().setChallenges({});
    }

    void didReceiveChallenge(platform::HttpSession&, platform::HttpTask&,
                             const platform::HttpChallenge& challenge,
                             const platform::HttpChallengeAnswer& completionHandler) override {
        seen.push_back(challenge.authenticationMethod + " " + challenge.host);
        handler = completionHandler;
    }
    void locationManagerDidChangeAuthorization(platform::LocationService&) override {}
    void didUpdateLocations(platform::LocationService&,
                            const std::vector<platform::LocationFix>& locations) override {
        seen.push_back(std::to_string(locations.size()) + " fixes");
    }
    void didFailWithError(platform::LocationService&, const KRError& error) override {
        seen.push_back(error.domain);
    }

    void restartLocation() {
        location->stopUpdatingLocation();
        location->startUpdatingLocation();
    }
    void send(const std::string& url = "https://user@service.example:8443/x") {
        platform::HttpSessionConfiguration configuration;
        configuration.resourceTimeout = 10s;
        const auto session = phone->makeHttpSession(configuration, this);
        const auto task =
            session->dataTask({"GET", url, {}, {}}, [this](auto data, auto response, auto error) {
                seen.push_back((error ? error->domain + std::to_string(error->code) + ' ' : "") +
                               data.value_or("-"));
                EXPECT_EQ(response.has_value(), data.has_value());
            });
        task->resume();
        task->resume(); // does nothing
        session->finishTasksAndInvalidate();
    }
    Texts after(ScriptedClock::Duration duration = {}) {
        phone->clock().advance(duration);
        phone->settle();
        return std::exchange(seen, {});
    }

    Texts seen;
    platform::HttpChallengeAnswer handler;
    const std::shared_ptr<platform::LocationService> location =
        phone->locationServices().makeService();
};

TEST_F(AScriptedPhone, GivesPlannedAnswersInOrderAndLaterOnesToTheOldestTaskThatWaits) {
    phone->http().plan({.body = "1"});
    phone->http().plan({.body = "part", .error = KRError{"dead", 7, {}}});
    for (int task = 0; task < 3; ++task) {
        send();
    }
    EXPECT_THAT(after(), ElementsAre("1", "dead7 part"));
    phone->http().answer({.error = KRError{"dead", 8, {}}});
    EXPECT_THAT(after(), ElementsAre("dead8 -"));
    EXPECT_EQ(phone->http().requests().back().session, 2U);
}

TEST_F(AScriptedPhone, LetsTheDelegateDecideOnceWhetherATaskSucceeds) {
    using Disposition = platform::HttpChallengeDisposition;
    phone->http().setChallenges({{"serverTrust", "", 0}});
    for (const auto& [disposition, outcome] :
         {std::pair(Disposition::useCredential, "morvellacinto.scripted.http3 -"),
          std::pair(Disposition::performDefaultHandling, "body")}) {
        phone->http().plan({.body = "body"});
        send();
        EXPECT_THAT(after(), ElementsAre("serverTrust service.example"));
        handler(disposition, std::nullopt);
        EXPECT_THAT(after(), ElementsAre(outcome));
        EXPECT_THROW(handler(disposition, std::nullopt), std::logic_error);
    }
}

TEST_F(AScriptedPhone, FailsATaskWhenItsTimeIsUpOrItsUrlIsNone) {
    send();
    EXPECT_THAT(after(9999ms), IsEmpty());
    EXPECT_THAT(after(1ms), ElementsAre("morvellacinto.scripted.http1 -"));
    EXPECT_THROW(phone->http().answer({}), std::logic_error) << "the task is over";
    phone->http().plan({.body = "kept"});
    send("5/audience/");
    send("ftp://files.example");
    EXPECT_THAT(after(), ElementsAre("morvellacinto.scripted.http2 -", "kept"));
}

TEST_F(AScriptedPhone, AnswersEachStartOfLocationOnceAfterTheDelayUnlessStoppedBefore) {
    phone->locationServices().deliver({{1, 2, 3, 4}});
    EXPECT_THAT(after(), IsEmpty()) << "nothing was started";
    restartLocation();
    EXPECT_THAT(after(40ms), IsEmpty());
    restartLocation();
    EXPECT_THAT(after(40ms), IsEmpty()) << "the first start's answer is not the second's";
    EXPECT_THAT(after(10ms), ElementsAre("1 fixes"));
    EXPECT_THAT(after(1h), IsEmpty());
    phone->script()->location.error = KRError{"lost", 1, {}};
    restartLocation();
    EXPECT_THAT(after(1s), ElementsAre("lost"));
}

TEST_F(AScriptedPhone, ComparesVersionsAsNumbers) {
    for (const auto& [version, major, minor, isAtLeast] :
         {std::tuple("17.5", 17, 5, true), std::tuple("17.5", 17, 6, false),
          std::tuple("9.10", 9, 9, true), std::tuple("18.0", 17, 6, true),
          std::tuple("beta", 1, 0, false)}) {
        phone->script()->systemVersion = version;
        EXPECT_EQ(phone->systemVersion().isAtLeast(major, minor), isAtLeast) << version << minor;
    }
}

TEST_F(AScriptedPhone, FiresInOrderOfTimeEachBlockAtItsOwnMoment) {
    scripted::ScriptedClock& clock = phone->clock();
    const Date start = clock.now();
    const auto note = [&] {
        seen.push_back(std::to_string(Date::secondsBetween(start, clock.now())).substr(0, 3));
    };
    clock.schedule(3s, note);
    clock.schedule(1s, [&] {
        note();
        clock.schedule(1s, note);
    });
    EXPECT_THAT(after(3s), ElementsAre("1.0", "2.0", "3.0"));
}

TEST_F(AScriptedPhone, RunsItsQueuesOnTheMainThreadAloneAndNotForEver) {
    phone->dispatch().asyncGlobal([] { throw std::range_error("first"); });
    phone->dispatch().asyncMain([] { throw std::domain_error("second"); });
    phone->dispatch().asyncMain([&] { seen.emplace_back("third"); });
    std::thread([&] { EXPECT_THROW(phone->drainMain(), std::logic_error); }).join();
    EXPECT_EQ(phone->runBackground(), 1U);
    EXPECT_THROW(phone->drainMain(), std::range_error);
    EXPECT_THROW(phone->drainMain(), std::domain_error);
    EXPECT_THAT(after(), ElementsAre("third")) << "an exception leaves the others queued";
    std::function<void()> again = [&] { phone->dispatch().asyncMain(again); };
    again();
    EXPECT_THROW(phone->settle(), std::logic_error);
    phone->shutdown();
}

} // namespace morvellacinto::scripted
