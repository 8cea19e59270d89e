#include "morvellacinto/scripted/ScriptedPhone.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace morvellacinto::scripted {
namespace {

using namespace std::chrono_literals;
using platform::HttpChallengeDisposition;

class Delegate final : public platform::HttpSessionDelegate {
public:
    void didReceiveChallenge(platform::HttpSession&, platform::HttpTask&,
                             const platform::HttpChallenge& challenge,
                             const platform::HttpChallengeAnswer& completionHandler) override {
        asked.push_back(challenge.authenticationMethod + " " + challenge.host);
        kept = completionHandler;
        if (answers) {
            completionHandler(disposition, credential);
        }
    }

    HttpChallengeDisposition disposition = HttpChallengeDisposition::performDefaultHandling;
    std::optional<platform::HttpCredential> credential;
    bool answers = true;
    std::vector<std::string> asked;
    platform::HttpChallengeAnswer kept;
};

class ScriptedHttpTest : public ::testing::Test {
protected:
    void send(std::optional<std::string> url = "https://user@service.example:8443/x") {
        platform::HttpSessionConfiguration configuration;
        configuration.resourceTimeout = 10s;
        const auto session = phone->makeHttpSession(configuration, &delegate);
        platform::HttpRequest request;
        request.url = std::move(url);
        session
            ->dataTask(request,
                       [this](auto data, auto response, auto error) {
                           outcomes.push_back(error.has_value() ? error->domain + " " +
                                                                      std::to_string(error->code) +
                                                                      " " + data.value_or("-")
                                                                : data.value());
                           EXPECT_EQ(response.has_value(), data.has_value());
                       })
            ->resume();
        session->finishTasksAndInvalidate();
    }

    [[nodiscard]] std::vector<std::string> settled() {
        phone->settle();
        return std::exchange(outcomes, {});
    }

    Delegate delegate;
    std::vector<std::string> outcomes;
    const std::shared_ptr<ScriptedPhone> phone = ScriptedPhone::create();
};

TEST_F(ScriptedHttpTest, PlannedAnswersGoOutInOrderAndLaterOnesToTheOldestTaskThatWaits) {
    phone->http().plan({.body = "1"});
    phone->http().plan({.body = "part", .error = KRError{"dead", 7, {}}});
    send();
    send();
    send();
    send();
    EXPECT_THAT(settled(), testing::ElementsAre("1", "dead 7 part"));
    EXPECT_EQ(phone->http().waitingCount(), 2U);
    phone->http().answer({.error = KRError{"dead", 8, {}}});
    EXPECT_THAT(settled(), testing::ElementsAre("dead 8 -"));
    phone->http().answer({.status = 500});
    EXPECT_THAT(settled(), testing::ElementsAre(""));
    EXPECT_THROW(phone->http().answer({}), std::logic_error);

    EXPECT_EQ(phone->http().sessionCount(), 4U);
    const RecordedRequest last = phone->http().requests().back();
    EXPECT_EQ(last.session, 3U);
    EXPECT_EQ(last.resumeCount, 1);
    EXPECT_EQ(last.invalidationCount, 1);
    EXPECT_EQ(last.configuration.resourceTimeout, 10s);
}

TEST_F(ScriptedHttpTest, TheDelegateDecidesWhetherATaskSucceeds) {
    phone->http().setChallenges({{"serverTrust", "", 0}, {"basic", "other.example", 1}});
    for (const auto disposition :
         {HttpChallengeDisposition::useCredential, HttpChallengeDisposition::cancelChallenge,
          HttpChallengeDisposition::rejectProtectionSpace}) {
        delegate.disposition = disposition;
        send();
        phone->http().answer({.body = "never seen"});
        EXPECT_THAT(settled(), testing::ElementsAre("morvellacinto.scripted.http 3 -"));
    }
    delegate.disposition = HttpChallengeDisposition::performDefaultHandling;
    delegate.credential = platform::HttpCredential{"user", "password"};
    phone->http().plan({.body = "never seen"});
    send();
    EXPECT_THAT(settled(), testing::ElementsAre("morvellacinto.scripted.http 3 -"));

    delegate.credential = std::nullopt;
    delegate.asked.clear();
    delegate.answers = false;
    phone->http().plan({.body = "seen"});
    send();
    EXPECT_THAT(settled(), testing::IsEmpty()) << "the answer waits for the delegate";
    delegate.answers = true;
    delegate.kept(HttpChallengeDisposition::performDefaultHandling, std::nullopt);
    EXPECT_THAT(settled(), testing::ElementsAre("seen"));
    EXPECT_THAT(delegate.asked,
                testing::ElementsAre("serverTrust service.example", "basic other.example"));
    EXPECT_THROW(delegate.kept(HttpChallengeDisposition::performDefaultHandling, std::nullopt),
                 std::logic_error);
}

TEST_F(ScriptedHttpTest, WithoutAnAnswerATaskFailsWhenItsTimeIsUp) {
    send();
    phone->clock().advance(9999ms);
    EXPECT_THAT(settled(), testing::IsEmpty());
    phone->clock().advance(1ms);
    EXPECT_THAT(settled(), testing::ElementsAre("morvellacinto.scripted.http 1 -"));
    EXPECT_THROW(phone->http().answer({}), std::logic_error) << "the task is over";
}

TEST_F(ScriptedHttpTest, ATaskWithoutAUrlFailsAndLeavesThePlannedAnswerAlone) {
    phone->http().plan({.body = "1"});
    send(std::nullopt);
    send("5/audience/");
    EXPECT_THAT(settled(), testing::Each("morvellacinto.scripted.http 2 -"));
    send("ftp://files.example");
    EXPECT_THAT(settled(), testing::ElementsAre("1"));
}

TEST_F(ScriptedHttpTest, ShutdownReleasesTheCompletionOfATaskThatWaits) {
    const auto captured = std::make_shared<int>();
    const auto session = phone->makeHttpSession({}, nullptr);
    platform::HttpRequest request;
    request.url = "https://service.example/";
    const auto task = session->dataTask(request, [captured](auto...) { ADD_FAILURE(); });
    task->resume();
    phone->shutdown();
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_TRUE(phone->isShutDown());
    phone->clock().advance(std::chrono::hours(24 * 8));
    EXPECT_THAT(settled(), testing::IsEmpty());
}

} // namespace
} // namespace morvellacinto::scripted
