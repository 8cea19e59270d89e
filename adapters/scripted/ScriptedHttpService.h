#pragma once

#include "morvellacinto/scripted/ScriptedClock.h"
#include "morvellacinto/scripted/ScriptedDispatch.h"
#include "morvellacinto/scripted/ScriptedHttp.h"

#include "ScriptedHttpSession.h"

#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace morvellacinto::scripted {

/// The state behind `ScriptedHttp`, kept alive by its sessions. Completions and blocks, which may
/// hold what is the host's, are called and destroyed without the lock.
class ScriptedHttpService : public std::enable_shared_from_this<ScriptedHttpService> {
public:
    ScriptedHttpService(std::shared_ptr<ScriptedDispatch> dispatch,
                        std::shared_ptr<ScriptedClock> clock);

    void plan(HttpAnswer answer);
    void answer(HttpAnswer answer);
    void setChallenges(std::vector<platform::HttpChallenge> challenges);
    [[nodiscard]] std::vector<RecordedRequest> requests() const;
    [[nodiscard]] std::size_t waitingCount() const;
    [[nodiscard]] std::size_t plannedCount() const;
    [[nodiscard]] std::size_t sessionCount() const;
    [[nodiscard]] std::shared_ptr<ScriptedHttpSession>
    makeSession(platform::HttpSessionConfiguration configuration,
                platform::HttpSessionDelegate* delegate);
    void cancelAll();

    [[nodiscard]] std::shared_ptr<ScriptedHttpTask>
    makeTask(std::shared_ptr<ScriptedHttpSession> session, platform::HttpRequest request,
             platform::HttpSession::Completion completion);
    void start(const std::shared_ptr<ScriptedHttpTask>& task);
    void invalidate(ScriptedHttpSession& session);

private:
    using TaskPointer = std::shared_ptr<ScriptedHttpTask>;

    // These two queue a block on the session's queue, which is the background queue.
    void proceedLater(TaskPointer task, HttpAnswer answer, std::size_t challengeIndex);
    void finishLater(TaskPointer task, HttpAnswer answer);
    void proceed(const TaskPointer& task, const HttpAnswer& answer, std::size_t challengeIndex);
    void finish(const TaskPointer& task, const HttpAnswer& answer);
    void failAfterTimeout(const TaskPointer& task);
    void releaseDelegateIfIdle(ScriptedHttpSession& session); // with the lock held

    const std::shared_ptr<ScriptedDispatch> dispatch_;
    const std::shared_ptr<ScriptedClock> clock_;
    mutable std::mutex mutex_;
    std::deque<HttpAnswer> planned_;
    std::vector<platform::HttpChallenge> challenges_{{"serverTrust", "", 0}};
    std::vector<RecordedRequest> records_;
    std::vector<TaskPointer> active_; // started and not finished, oldest first
    std::size_t sessionCount_ = 0;
    bool isCancelled_ = false;
};

} // namespace morvellacinto::scripted
