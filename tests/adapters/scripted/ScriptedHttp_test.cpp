#include "support/ScriptedPhoneTest.h"

namespace morvellacinto::scripted {
namespace {

using namespace std::chrono_literals;
using platform::HttpChallengeDisposition;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ScriptedHttpTest : public ScriptedPhoneTest, public platform::HttpSessionDelegate {
protected:
    void didReceiveChallenge(platform::HttpSession&, platform::HttpTask&,
                             const platform::HttpChallenge& challenge,
                             const platform::HttpChallengeAnswer& completionHandler) override {
        asked.push_back(challenge.authenticationMethod + " " + challenge.host);
        handler = completionHandler;
    }

    void send(std::optional<std::string> url = "https://user@service.example:8443/x",
              platform::HttpSessionDelegate* delegate = nullptr) {
        platform::HttpSessionConfiguration configuration;
        configuration.resourceTimeout = 10s;
        const auto session = phone->makeHttpSession(configuration, delegate);
        platform::HttpRequest request;
        request.url = std::move(url);
        const auto task = session->dataTask(request, [this](auto data, auto response, auto error) {
            outcomes.push_back(
                (error ? error->domain + " " + std::to_string(error->code) + " " : "") +
                data.value_or("-"));
            EXPECT_EQ(response.has_value(), data.has_value());
        });
        task->resume();
        session->finishTasksAndInvalidate();
    }

    [[nodiscard]] std::vector<std::string> settled() {
        phone->settle();
        return std::exchange(outcomes, {});
    }

    std::vector<std::string> asked;
    platform::HttpChallengeAnswer handler;
    std::vector<std::string> outcomes;
};

TEST_F(ScriptedHttpTest, PlannedAnswersGoOutInOrderAndLaterOnesToTheOldestTaskThatWaits) {
    phone->http().plan({.body = "1"});
    phone->http().plan({.body = "part", .error = KRError{"dead", 7, {}}});
    for (int task = 0; task < 4; ++task) {
        send();
    }
    EXPECT_THAT(settled(), ElementsAre("1", "dead 7 part"));
    phone->http().answer({.error = KRError{"dead", 8, {}}});
    EXPECT_THAT(settled(), ElementsAre("dead 8 -"));
    phone->http().answer({.status = 500});
    EXPECT_THAT(settled(), ElementsAre(""));
    EXPECT_THROW(phone->http().answer({}), std::logic_error);
    EXPECT_EQ(phone->http().sessionCount(), 4U);
    EXPECT_EQ(phone->http().requests().back().session, 3U);
}

TEST_F(ScriptedHttpTest, TheDelegateDecidesWhetherATaskSucceeds) {
    const struct {
        HttpChallengeDisposition disposition;
        std::optional<platform::HttpCredential> credential;
        const char* outcome;
    } cases[] = {
        {HttpChallengeDisposition::useCredential, {}, "morvellacinto.scripted.http 3 -"},
        {HttpChallengeDisposition::cancelChallenge, {}, "morvellacinto.scripted.http 3 -"},
        {HttpChallengeDisposition::performDefaultHandling,
         platform::HttpCredential{"user", "password"}, "morvellacinto.scripted.http 3 -"},
        {HttpChallengeDisposition::performDefaultHandling, {}, "body"},
    };
    phone->http().setChallenges({{"serverTrust", "", 0}, {"basic", "other.example", 1}});
    for (const auto& [disposition, credential, outcome] : cases) {
        phone->http().plan({.body = "body"});
        send("https://user@service.example:8443/x", this);
        EXPECT_THAT(settled(), IsEmpty()) << "the answer waits for the delegate";
        handler(HttpChallengeDisposition::performDefaultHandling, std::nullopt);
        EXPECT_THAT(settled(), IsEmpty());
        handler(disposition, credential);
        EXPECT_THAT(settled(), ElementsAre(outcome));
        EXPECT_THROW(handler(disposition, credential), std::logic_error) << "answered twice";
        EXPECT_THAT(std::exchange(asked, {}),
                    ElementsAre("serverTrust service.example", "basic other.example"));
    }
}

TEST_F(ScriptedHttpTest, ATaskFailsWhenItsTimeIsUpOrItsUrlIsNone) {
    send();
    phone->clock().advance(9999ms);
    EXPECT_THAT(settled(), IsEmpty());
    phone->clock().advance(1ms);
    EXPECT_THAT(settled(), ElementsAre("morvellacinto.scripted.http 1 -"));
    EXPECT_THROW(phone->http().answer({}), std::logic_error) << "the task is over";
    phone->http().plan({.body = "kept"});
    send(std::nullopt);
    send("5/audience/");
    EXPECT_THAT(settled(), testing::Each("morvellacinto.scripted.http 2 -"));
    send("ftp://files.example");
    EXPECT_THAT(settled(), ElementsAre("kept"));
}

} // namespace
} // namespace morvellacinto::scripted
