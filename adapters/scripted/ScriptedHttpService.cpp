#include "ScriptedHttpService.h"

#include "UrlSyntax.h"

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

ScriptedHttpService::ScriptedHttpService(std::shared_ptr<ScriptedDispatch> dispatch,
                                         std::shared_ptr<ScriptedClock> clock)
    : dispatch_(std::move(dispatch)), clock_(std::move(clock)) {}

void ScriptedHttpService::plan(HttpAnswer answer) {
    const std::lock_guard lock(mutex_);
    planned_.push_back(std::move(answer));
}

void ScriptedHttpService::answer(HttpAnswer answer) {
    TaskPointer oldest;
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::find_if(active_.begin(), active_.end(),
                                        [](const TaskPointer& task) { return task->isWaiting; });
        if (found == active_.end()) {
            throw std::logic_error("no HTTP task waits for an answer");
        }
        oldest = *found;
        oldest->isWaiting = false;
    }
    proceedLater(std::move(oldest), std::move(answer), 0);
}

void ScriptedHttpService::setChallenges(std::vector<platform::HttpChallenge> challenges) {
    const std::lock_guard lock(mutex_);
    challenges_ = std::move(challenges);
}

std::vector<RecordedRequest> ScriptedHttpService::requests() const {
    const std::lock_guard lock(mutex_);
    return records_;
}

std::size_t ScriptedHttpService::waitingCount() const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(
        active_.begin(), active_.end(), [](const TaskPointer& task) { return task->isWaiting; }));
}

std::size_t ScriptedHttpService::plannedCount() const {
    const std::lock_guard lock(mutex_);
    return planned_.size();
}

std::size_t ScriptedHttpService::sessionCount() const {
    const std::lock_guard lock(mutex_);
    return sessionCount_;
}

std::shared_ptr<ScriptedHttpSession>
ScriptedHttpService::makeSession(platform::HttpSessionConfiguration configuration,
                                 platform::HttpSessionDelegate* delegate) {
    const std::lock_guard lock(mutex_);
    return std::make_shared<ScriptedHttpSession>(shared_from_this(), sessionCount_++,
                                                 std::move(configuration), delegate);
}

void ScriptedHttpService::cancelAll() {
    std::vector<TaskPointer> dropped;
    std::vector<platform::HttpSession::Completion> completions;
    const std::lock_guard lock(mutex_);
    isCancelled_ = true;
    dropped.swap(active_);
    for (const TaskPointer& task : dropped) {
        task->isWaiting = false;
        completions.push_back(std::exchange(task->completion, nullptr));
    }
}

std::shared_ptr<ScriptedHttpTask>
ScriptedHttpService::makeTask(std::shared_ptr<ScriptedHttpSession> session,
                              platform::HttpRequest request,
                              platform::HttpSession::Completion completion) {
    const std::lock_guard lock(mutex_);
    RecordedRequest record;
    record.request = request;
    record.configuration = session->configuration;
    record.session = session->number;
    record.invalidationCount = session->invalidationCount;
    const bool willStart = session->invalidationCount == 0 && !isCancelled_;
    auto task =
        std::make_shared<ScriptedHttpTask>(std::move(session), std::move(request), records_.size());
    records_.push_back(std::move(record));
    if (willStart) {
        task->completion = std::move(completion);
    }
    return task;
}

void ScriptedHttpService::start(const TaskPointer& task) {
    platform::HttpSession::Completion dropped;
    std::optional<HttpAnswer> answer;
    const std::optional<std::string>& url = task->request.url;
    const bool hasUrl = hostOf(url.value_or("")).has_value();
    {
        const std::lock_guard lock(mutex_);
        ++records_[task->record].resumeCount;
        if (std::exchange(task->isStarted, true)) {
            return;
        }
        if (task->session->invalidationCount != 0 || isCancelled_) {
            dropped = std::exchange(task->completion, nullptr);
            return;
        }
        active_.push_back(task);
        records_[task->record].isSent = hasUrl;
        if (hasUrl && !planned_.empty()) {
            answer = std::move(planned_.front());
            planned_.pop_front();
        }
        task->isWaiting = hasUrl && !answer.has_value();
    }
    if (!hasUrl) {
        finishLater(task, failure(ScriptedHttp::badUrl, url,
                                  url.has_value() ? "The URL is no absolute URL."
                                                  : "The request has no URL."));
        return;
    }
    failAfterTimeout(task);
    if (answer.has_value()) {
        proceedLater(task, std::move(*answer), 0);
    }
}

void ScriptedHttpService::invalidate(ScriptedHttpSession& session) {
    const std::lock_guard lock(mutex_);
    ++session.invalidationCount;
    for (RecordedRequest& record : records_) {
        if (record.session == session.number) {
            record.invalidationCount = session.invalidationCount;
        }
    }
    releaseDelegateIfIdle(session);
}

void ScriptedHttpService::proceedLater(TaskPointer task, HttpAnswer answer,
                                       std::size_t challengeIndex) {
    dispatch_->asyncGlobal([self = shared_from_this(), task = std::move(task),
                            answer = std::move(answer),
                            challengeIndex] { self->proceed(task, answer, challengeIndex); });
}

void ScriptedHttpService::finishLater(TaskPointer task, HttpAnswer answer) {
    dispatch_->asyncGlobal([self = shared_from_this(), task = std::move(task),
                            answer = std::move(answer)] { self->finish(task, answer); });
}

void ScriptedHttpService::proceed(const TaskPointer& task, const HttpAnswer& answer,
                                  std::size_t challengeIndex) {
    platform::HttpSessionDelegate* delegate = nullptr;
    platform::HttpChallenge challenge;
    {
        const std::lock_guard lock(mutex_);
        if (challengeIndex < challenges_.size()) {
            delegate = task->session->delegate;
            challenge = challenges_[challengeIndex];
        }
    }
    if (delegate == nullptr) {
        finish(task, answer);
        return;
    }
    if (challenge.host.empty()) {
        challenge.host = hostOf(task->request.url.value_or("")).value_or("");
    }
    auto isAnswered = std::make_shared<std::atomic<bool>>(false);
    delegate->didReceiveChallenge(
        *task->session, *task, challenge,
        [self = shared_from_this(), task, answer, challengeIndex,
         method = challenge.authenticationMethod,
         isAnswered](platform::HttpChallengeDisposition disposition,
                     const std::optional<platform::HttpCredential>& credential) {
            if (isAnswered->exchange(true)) {
                throw std::logic_error("a challenge was answered twice");
            }
            if (disposition == platform::HttpChallengeDisposition::performDefaultHandling &&
                !credential.has_value()) {
                self->proceedLater(task, answer, challengeIndex + 1);
            } else {
                self->finishLater(task, failure(ScriptedHttp::challengeRefused, task->request.url,
                                                "The challenge " + method +
                                                    " was not left to default handling."));
            }
        });
}

void ScriptedHttpService::finish(const TaskPointer& task, const HttpAnswer& answer) {
    platform::HttpSession::Completion completion;
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::find(active_.begin(), active_.end(), task);
        if (found == active_.end()) {
            return;
        }
        active_.erase(found);
        completion = std::exchange(task->completion, nullptr);
        releaseDelegateIfIdle(*task->session);
    }
    if (completion == nullptr) {
        return;
    }
    std::optional<platform::HttpResponse> response;
    if (!answer.error.has_value() || answer.body.has_value()) {
        response = platform::HttpResponse{task->request.url.value_or(""), answer.status};
    }
    completion(answer.error.has_value() ? answer.body : answer.body.value_or(""),
               std::move(response), answer.error);
}

void ScriptedHttpService::failAfterTimeout(const TaskPointer& task) {
    const auto timeout = task->session->configuration.resourceTimeout;
    clock_->schedule(timeout, [weak = std::weak_ptr(task)] {
        if (const TaskPointer late = weak.lock()) {
            late->session->service->finishLater(
                late, failure(ScriptedHttp::timedOut, late->request.url,
                              "The answer did not come within the resource time-out."));
        }
    });
}

void ScriptedHttpService::releaseDelegateIfIdle(ScriptedHttpSession& session) {
    const bool isBusy = std::any_of(active_.begin(), active_.end(), [&](const TaskPointer& task) {
        return task->session.get() == &session;
    });
    if (session.invalidationCount != 0 && !isBusy) {
        session.delegate = nullptr;
    }
}

} // namespace morvellacinto::scripted
