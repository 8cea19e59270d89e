#include "contract/Contracts.h"

#include "morvellacinto/platform/Dispatch.h"

#include <atomic>
#include <map>
#include <optional>
#include <utility>

namespace morvellacinto::contract {
namespace {

using platform::HttpSession;

// One task and its outcome. The count is raised last, for whoever waits on it.
class Exchange {
public:
    Exchange(platform::Platform& platform, HttpSession& session, platform::HttpRequest request)
        : task(session.dataTask(
              std::move(request),
              [this, &platform, held = held](auto itsData, auto itsResponse, auto itsError) {
                  EXPECT_FALSE(platform.dispatch().isMainThread());
                  data = std::move(itsData);
                  response = std::move(itsResponse);
                  error = std::move(itsError);
                  ++calls;
              })) {}

    const std::shared_ptr<int> held = std::make_shared<int>(); // by the completion too
    const std::shared_ptr<platform::HttpTask> task;
    std::optional<std::string> data;
    std::optional<platform::HttpResponse> response;
    std::optional<KRError> error;
    std::atomic<int> calls = 0;
};

TEST_P(HttpSessionContract, DeliversBodyAndResponseOnceWhateverTheStatus) {
    const auto session = platform().makeHttpSession({}, nullptr);
    const Answer answers[] = {
        {200, "{\"tags\":[]}"},      {300, "a"}, {401, "b"}, {404, ""}, {407, "c"},
        {500, std::string("\0x", 2)}};
    for (const Answer& answer : answers) {
        const std::string url = subject().serve(answer);
        Exchange exchange(platform(), *session, {"GET", url, {}, {}});
        exchange.task->resume();
        exchange.task->resume();
        ASSERT_TRUE(pumpUntil([&] { return exchange.calls > 0; }));
        EXPECT_EQ(exchange.data, answer.body);
        ASSERT_TRUE(exchange.response.has_value());
        EXPECT_EQ(exchange.response->status, answer.status);
        EXPECT_EQ(exchange.response->url, url);
        EXPECT_EQ(exchange.error, std::nullopt);
    }
    EXPECT_EQ(subject().received().size(), std::size(answers)) << "a second resume sends nothing";
}

TEST_P(HttpSessionContract, SendsMethodBodyAndHeadersARequestsOwnWinning) {
    platform::HttpSessionConfiguration configuration;
    configuration.additionalHeaders = {{"X-Session", "session"}, {"X-Both", "session"}};
    const auto session = platform().makeHttpSession(configuration, nullptr);
    const std::string body("{\"zero\":\"\0\"}", 12);
    Exchange exchange(platform(), *session,
                      {"POST",
                       subject().serve({200, "{}"}),
                       {{"X-Both", "request"}, {"X-Request", "request"}},
                       body});
    exchange.task->resume();
    ASSERT_TRUE(pumpUntil([&] { return exchange.calls == 1; }));
    const auto received = subject().received();
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].body, body);
    std::multimap<std::string, std::string> sent;
    for (const auto& [name, value] : received[0].headers) {
        if (name.starts_with("X-")) {
            sent.emplace(name, value);
        }
    }
    EXPECT_EQ(sent,
              (std::multimap<std::string, std::string>{
                  {"X-Both", "request"}, {"X-Request", "request"}, {"X-Session", "session"}}));
}

TEST_P(HttpSessionContract, AFailureIsAnErrorWithTheUrlAndASentence) {
    const auto session = platform().makeHttpSession({}, nullptr);
    for (const auto& url : {std::optional(subject().deadUrl()), std::optional<std::string>()}) {
        Exchange exchange(platform(), *session, {"GET", url, {}, {}});
        exchange.task->resume();
        ASSERT_TRUE(pumpUntil([&] { return exchange.calls == 1; }));
        EXPECT_EQ(exchange.response, std::nullopt);
        ASSERT_TRUE(exchange.error.has_value());
        EXPECT_FALSE(exchange.error->domain.empty());
        EXPECT_FALSE(exchange.error->userInfo.at(KRError::messageKey).asString().empty());
        if (url) {
            EXPECT_EQ(exchange.error->userInfo.at(KRError::urlKey), Value(*url));
        }
    }
}

TEST_P(HttpSessionContract, AnInvalidatedSessionFinishesStartedTasksAndStartsNoOther) {
    const auto session = platform().makeHttpSession({}, nullptr);
    const std::string url = subject().serve({200, "{}"});
    Exchange started(platform(), *session, {"GET", url, {}, {}});
    Exchange early(platform(), *session, {"GET", url, {}, {}});
    started.task->resume();
    session->finishTasksAndInvalidate();
    early.task->resume();
    Exchange late(platform(), *session, {"GET", url, {}, {}});
    late.task->resume();
    ASSERT_TRUE(pumpUntil([&] { return started.held.use_count() == 1; })) << "released";
    EXPECT_EQ(started.data, "{}");
    EXPECT_EQ(early.calls + late.calls, 0);
    EXPECT_EQ(subject().received().size(), 1U);
}

TEST_P(HttpSessionContract, AfterShutdownNoCompletionStarts) {
    const auto session = platform().makeHttpSession({}, nullptr);
    const std::string url = subject().serve({200, "{}"});
    Exchange exchange(platform(), *session, {"GET", url, {}, {}});
    Exchange late(platform(), *session, {"GET", url, {}, {}});
    exchange.task->resume();
    platform().shutdown();
    const int before = exchange.calls;
    late.task->resume();
    session->finishTasksAndInvalidate();
    subject().settle();
    EXPECT_EQ(exchange.calls + late.calls, before);
}

} // namespace
} // namespace morvellacinto::contract
