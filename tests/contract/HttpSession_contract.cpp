#include "contract/Contracts.h"

#include "morvellacinto/platform/Dispatch.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace morvellacinto::contract {
namespace {

using platform::HttpRequest;
using platform::HttpSession;

struct Outcome {
    std::optional<std::string> data;
    std::optional<platform::HttpResponse> response;
    std::optional<KRError> error;
};

// Counts calls and keeps the last outcome; the count is raised last, for whoever waits on it.
struct Recorder {
    Outcome last;
    std::atomic<int> calls = 0;

    [[nodiscard]] HttpSession::Completion completion() {
        return
            [this](std::optional<std::string> data, std::optional<platform::HttpResponse> response,
                   std::optional<KRError> error) {
                last = {std::move(data), std::move(response), std::move(error)};
                ++calls;
            };
    }
};

HttpRequest get(std::optional<std::string> url) {
    HttpRequest request;
    request.url = std::move(url);
    return request;
}

std::optional<std::string> headerOf(const HttpRequest& request, std::string_view name) {
    std::optional<std::string> found;
    for (const platform::HttpHeader& header : request.headers) {
        if (header.name == name) {
            EXPECT_EQ(found, std::nullopt) << "sent twice: " << name;
            found = header.value;
        }
    }
    return found;
}

TEST_P(HttpSessionContract, DeliversBodyAndResponseOnceOffTheMainThreadWhateverTheStatus) {
    const auto session = platform().makeHttpSession({}, nullptr);
    const Answer answers[] = {
        {200, "{\"tags\":[]}"},      {300, "a"}, {401, "b"}, {404, ""}, {407, "c"},
        {500, std::string("\0x", 2)}};
    for (const Answer& answer : answers) {
        const std::string url = subject().serve(answer);
        Recorder recorder;
        std::atomic<bool> onMain = false;
        auto record = recorder.completion();
        const auto task = session->dataTask(get(url), [&](auto data, auto response, auto error) {
            onMain = platform().dispatch().isMainThread();
            record(std::move(data), std::move(response), std::move(error));
        });
        EXPECT_EQ(recorder.calls, 0);
        task->resume();
        task->resume();
        ASSERT_TRUE(pumpUntil([&] { return recorder.calls > 0; }));
        EXPECT_EQ(recorder.last.data, answer.body);
        ASSERT_TRUE(recorder.last.response.has_value());
        EXPECT_EQ(recorder.last.response->status, answer.status);
        EXPECT_EQ(recorder.last.response->url, url);
        EXPECT_EQ(recorder.last.error, std::nullopt);
        EXPECT_FALSE(onMain);
    }
    EXPECT_EQ(subject().received().size(), std::size(answers)) << "a second resume sends nothing";
}

TEST_P(HttpSessionContract, SendsMethodBodyAndHeadersARequestsOwnWinning) {
    platform::HttpSessionConfiguration configuration;
    configuration.additionalHeaders = {{"X-Session", "session"}, {"X-Both", "session"}};
    const auto session = platform().makeHttpSession(configuration, nullptr);
    const std::string body("{\"zero\":\"\0\"}", 12);
    Recorder recorder;
    session
        ->dataTask({"POST",
                    subject().serve({200, "{}"}),
                    {{"X-Both", "request"}, {"X-Request", "request"}},
                    body},
                   recorder.completion())
        ->resume();
    ASSERT_TRUE(pumpUntil([&] { return recorder.calls == 1; }));
    const auto received = subject().received();
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].body, body);
    EXPECT_EQ(headerOf(received[0], "X-Session"), "session");
    EXPECT_EQ(headerOf(received[0], "X-Both"), "request");
    EXPECT_EQ(headerOf(received[0], "X-Request"), "request");
}

TEST_P(HttpSessionContract, AFailureIsAnErrorWithTheUrlAndASentence) {
    const auto session = platform().makeHttpSession({}, nullptr);
    Recorder recorder;
    const std::string url = subject().deadUrl();
    session->dataTask(get(url), recorder.completion())->resume();
    ASSERT_TRUE(pumpUntil([&] { return recorder.calls == 1; }));
    EXPECT_EQ(recorder.last.response, std::nullopt);
    ASSERT_TRUE(recorder.last.error.has_value());
    EXPECT_FALSE(recorder.last.error->domain.empty());
    EXPECT_EQ(recorder.last.error->userInfo.at(KRError::urlKey), Value(url));
    EXPECT_FALSE(recorder.last.error->userInfo.at(KRError::messageKey).asString().empty());

    session->dataTask(get(std::nullopt), recorder.completion())->resume();
    ASSERT_TRUE(pumpUntil([&] { return recorder.calls == 2; }));
    EXPECT_TRUE(recorder.last.error.has_value()) << "a task without a URL fails";
}

TEST_P(HttpSessionContract, AnInvalidatedSessionFinishesStartedTasksAndStartsNoOther) {
    const auto session = platform().makeHttpSession({}, nullptr);
    const std::string url = subject().serve({200, "{}"});
    Recorder started;
    Recorder late;
    const auto captured = std::make_shared<int>();
    const std::weak_ptr<int> observed = captured;
    session
        ->dataTask(get(url), [captured, record = started.completion()](
                                 auto... outcome) { record(std::move(outcome)...); })
        ->resume();
    const auto early = session->dataTask(get(url), late.completion());
    session->finishTasksAndInvalidate();
    early->resume();
    session->dataTask(get(url), late.completion())->resume();
    ASSERT_TRUE(pumpUntil([&] { return started.calls == 1; }));
    EXPECT_TRUE(pumpUntil([&] { return observed.use_count() == 1; }))
        << "the completion is released";
    EXPECT_EQ(started.last.data, "{}");
    EXPECT_EQ(late.calls, 0);
    EXPECT_EQ(subject().received().size(), 1U);
}

TEST_P(HttpSessionContract, AfterShutdownNoCompletionStarts) {
    const auto session = platform().makeHttpSession({}, nullptr);
    Recorder recorder;
    const std::string url = subject().serve({200, "{}"});
    session->dataTask(get(url), recorder.completion())->resume();
    platform().shutdown();
    const int before = recorder.calls;
    session->dataTask(get(url), recorder.completion())->resume();
    session->finishTasksAndInvalidate();
    EXPECT_EQ(recorder.calls, before);
}

} // namespace
} // namespace morvellacinto::contract
