// SPDX-License-Identifier: MIT
#include "morvellacinto/scripted/ScriptedHttp.h"

#include "morvellacinto/scripted/ScriptedUrlParser.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

namespace morvellacinto::scripted {

namespace {

HttpAnswer failure(std::int64_t code, const std::optional<std::string>& url,
                   const std::string& message) {
    KRError error{std::string(ScriptedHttp::errorDomain), code, {{KRError::messageKey, message}}};
    if (url.has_value()) {
        error.userInfo.set(KRError::urlKey, *url);
    }
    return {.error = std::move(error)};
}

} // namespace

std::vector<platform::HttpHeader> RecordedRequest::sentHeaders() const {
    std::vector<platform::HttpHeader> sent = request.headers;
    for (const platform::HttpHeader& header : configuration.additionalHeaders) {
        if (std::ranges::find(request.headers, header.name, &platform::HttpHeader::name) ==
            request.headers.end()) {
            sent.push_back(header);
        }
    }
    return sent;
}

class ScriptedHttp::Session final : public platform::HttpSession,
                                    public std::enable_shared_from_this<Session> {
public:
    Session(std::shared_ptr<ScriptedHttp> itsHttp, std::size_t itsNumber,
            platform::HttpSessionConfiguration itsConfiguration,
            platform::HttpSessionDelegate* itsDelegate)
        : http(std::move(itsHttp)), number(itsNumber), configuration(std::move(itsConfiguration)),
          delegate(itsDelegate) {}

    [[nodiscard]] std::shared_ptr<platform::HttpTask> dataTask(platform::HttpRequest request,
                                                               Completion completion) override;

    void finishTasksAndInvalidate() override {
        const std::lock_guard lock(http->mutex_);
        ++http->invalidationCounts_[number];
    }

    const std::shared_ptr<ScriptedHttp> http;
    const std::size_t number;
    const platform::HttpSessionConfiguration configuration;
    platform::HttpSessionDelegate* const delegate; // asked while a task is active, never later
};

// Made, started, then waiting for an answer by hand if none is planned; after the answer the
// challenges, and the end.
class ScriptedHttp::Task final : public platform::HttpTask,
                                 public std::enable_shared_from_this<Task> {
public:
    Task(std::shared_ptr<Session> session, std::optional<std::string> url, std::size_t record,
         platform::HttpSession::Completion completion)
        : session_(std::move(session)), http_(*session_->http), url_(std::move(url)),
          record_(record), completion_(std::move(completion)) {}

    void resume() override {
        platform::HttpSession::Completion dropped; // destroyed without the lock
        std::optional<HttpAnswer> answer;
        const bool hasUrl = ScriptedUrlParser::hostOf(url_.value_or("")).has_value();
        std::string refused = url_.value_or("");
        {
            const std::lock_guard lock(http_.mutex_);
            RecordedRequest& record = http_.records_[record_];
            if (++record.resumeCount > 1) {
                return;
            }
            if (http_.invalidationCounts_[session_->number] != 0 || http_.isCancelled_) {
                dropped.swap(completion_);
                return;
            }
            http_.active_.push_back(shared_from_this());
            record.isSent = hasUrl;
            refused += record.request.refusedUrl;
            if (hasUrl && !http_.planned_.empty()) {
                answer = std::move(http_.planned_.front());
                http_.planned_.pop_front();
            }
            isWaiting = hasUrl && !answer.has_value();
        }
        if (!hasUrl) {
            finishLater(
                refused.empty()
                    ? failure(badUrl, url_, "The request has no valid URL.")
                    : failure(badUrl, refused, "The request has no valid URL: " + refused + "."));
            return;
        }
        http_.clock_->schedule(session_->configuration.resourceTimeout, [weak = weak_from_this()] {
            if (const auto task = weak.lock()) {
                task->finishLater(failure(timedOut, task->url_,
                                          "The answer did not come within the resource time-out."));
            }
        });
        if (answer.has_value()) {
            proceedLater(std::move(*answer), 0);
        }
    }

    // To the challenge of that number, or to the answer when there are no more.
    void proceedLater(HttpAnswer answer, std::size_t challenge) {
        http_.dispatch_->asyncGlobal([self = shared_from_this(), answer = std::move(answer),
                                      challenge] { self->proceed(answer, challenge); });
    }

    // With the lock held.
    platform::HttpSession::Completion takeCompletion() { return std::exchange(completion_, {}); }

    bool isWaiting = false; // for an answer by hand; guarded by the lock

private:
    void finishLater(HttpAnswer answer) {
        http_.dispatch_->asyncGlobal(
            [self = shared_from_this(), answer = std::move(answer)] { self->finish(answer); });
    }

    void proceed(const HttpAnswer& answer, std::size_t number) {
        platform::HttpChallenge challenge;
        {
            const std::lock_guard lock(http_.mutex_);
            if (std::ranges::find(http_.active_, shared_from_this()) == http_.active_.end()) {
                return;
            }
            if (number < http_.challenges_.size()) {
                challenge = http_.challenges_[number];
            }
        }
        if (session_->delegate == nullptr || challenge.authenticationMethod.empty()) {
            finish(answer);
            return;
        }
        if (challenge.host.empty()) {
            challenge.host = ScriptedUrlParser::hostOf(*url_).value_or("");
        }
        auto isAnswered = std::make_shared<std::atomic<bool>>(false);
        session_->delegate->didReceiveChallenge(
            *session_, *this, challenge,
            [self = shared_from_this(), answer, number, isAnswered,
             method = challenge.authenticationMethod](
                platform::HttpChallengeDisposition disposition,
                const std::optional<platform::HttpCredential>& credential) {
                if (isAnswered->exchange(true)) {
                    throw std::logic_error("a challenge was answered twice");
                }
                if (disposition == platform::HttpChallengeDisposition::performDefaultHandling &&
                    !credential.has_value()) {
                    self->proceedLater(answer, number + 1);
                } else {
                    self->finishLater(
                        failure(challengeRefused, self->url_,
                                "The challenge " + method + " was not left to default handling."));
                }
            });
    }

    void finish(const HttpAnswer& answer) {
        platform::HttpSession::Completion completion;
        {
            const std::lock_guard lock(http_.mutex_);
            if (std::erase(http_.active_, shared_from_this()) == 0) {
                return;
            }
            completion = takeCompletion();
        }
        if (completion == nullptr) {
            return;
        }
        std::optional<platform::HttpResponse> response;
        if (!answer.error.has_value() || answer.body.has_value()) {
            response = platform::HttpResponse{url_.value_or(""), answer.status};
        }
        completion(answer.error.has_value() ? answer.body : answer.body.value_or(""),
                   std::move(response), answer.error);
    }

    const std::shared_ptr<Session> session_;
    ScriptedHttp& http_;
    const std::optional<std::string> url_;
    const std::size_t record_; // its index
    platform::HttpSession::Completion completion_;
};

std::shared_ptr<platform::HttpTask> ScriptedHttp::Session::dataTask(platform::HttpRequest request,
                                                                    Completion completion) {
    RecordedRequest record{.request = std::move(request),
                           .configuration = configuration,
                           .session = number,
                           .hasDelegate = delegate != nullptr};
    const std::lock_guard lock(http->mutex_);
    auto task = std::make_shared<Task>(shared_from_this(), record.request.url,
                                       http->records_.size(), std::move(completion));
    http->records_.push_back(std::move(record));
    return task;
}

ScriptedHttp::ScriptedHttp(std::shared_ptr<ScriptedDispatch> dispatch,
                           std::shared_ptr<ScriptedClock> clock)
    : dispatch_(std::move(dispatch)), clock_(std::move(clock)) {}

void ScriptedHttp::plan(HttpAnswer answer) {
    const std::lock_guard lock(mutex_);
    planned_.push_back(std::move(answer));
}

void ScriptedHttp::answer(HttpAnswer answer) {
    std::shared_ptr<Task> oldest;
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::ranges::find(active_, true, &Task::isWaiting);
        if (found == active_.end()) {
            throw std::logic_error("no HTTP task waits for an answer");
        }
        oldest = *found;
        oldest->isWaiting = false;
    }
    oldest->proceedLater(std::move(answer), 0);
}

void ScriptedHttp::setChallenges(std::vector<platform::HttpChallenge> challenges) {
    const std::lock_guard lock(mutex_);
    challenges_ = std::move(challenges);
}

std::vector<RecordedRequest> ScriptedHttp::requests() const {
    const std::lock_guard lock(mutex_);
    std::vector<RecordedRequest> records = records_;
    for (RecordedRequest& record : records) {
        record.invalidationCount = invalidationCounts_[record.session];
    }
    return records;
}

std::size_t ScriptedHttp::sessionCount() const {
    const std::lock_guard lock(mutex_);
    return invalidationCounts_.size();
}

std::shared_ptr<platform::HttpSession>
ScriptedHttp::makeSession(platform::HttpSessionConfiguration configuration,
                          platform::HttpSessionDelegate* delegate) {
    const std::lock_guard lock(mutex_);
    invalidationCounts_.push_back(0);
    return std::make_shared<Session>(shared_from_this(), invalidationCounts_.size() - 1,
                                     std::move(configuration), delegate);
}

void ScriptedHttp::cancelAll() {
    std::vector<platform::HttpSession::Completion> dropped; // destroyed without the lock
    std::vector<std::shared_ptr<Task>> tasks;
    const std::lock_guard lock(mutex_);
    isCancelled_ = true;
    tasks.swap(active_);
    dropped.reserve(tasks.size());
    for (const auto& task : tasks) {
        dropped.push_back(task->takeCompletion());
    }
}

} // namespace morvellacinto::scripted
