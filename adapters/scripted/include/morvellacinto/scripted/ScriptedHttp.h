#pragma once

#include "morvellacinto/platform/HttpSession.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace morvellacinto::scripted {

class ScriptedClock;
class ScriptedDispatch;
class ScriptedHttpService;

/// What the service answers to one request.
struct HttpAnswer {
    int status = 200;
    /// Absent is an empty body; next to an error it is no body at all.
    std::optional<std::string> body = std::nullopt;
    /// Fails the transfer; a body then is the part that had come before.
    std::optional<KRError> error = std::nullopt;
};

/// One task and what became of it, as far as can be told when asked for.
struct RecordedRequest {
    platform::HttpRequest request;
    platform::HttpSessionConfiguration configuration;
    /// Sessions are numbered from 0 as they are made.
    std::size_t session = 0;
    int resumeCount = 0;
    /// Whether the request left the phone.
    bool isSent = false;
    /// How often the session was told to finish and invalidate itself.
    int invalidationCount = 0;

    /// The session's additional headers included, as far as the request has none of that name.
    [[nodiscard]] MORVELLACINTO_EXPORT std::vector<platform::HttpHeader> sentHeaders() const;
    /// The value of one of them; the name in any case.
    [[nodiscard]] MORVELLACINTO_EXPORT std::optional<std::string>
    sentHeader(std::string_view name) const;
};

/// The service behind the scripted sessions: records every task and answers as planned.
///
/// A started task takes the next planned answer, or waits for `answer`. Before the answer, the
/// session's delegate is asked about each challenge; the task fails unless each is answered with
/// default handling and no credential. All this and the completion happens in blocks of the
/// background queue. A task that has no answer when its resource time-out has passed on the
/// scripted clock fails, and so does one whose URL is absent or is none; schemes are not judged.
/// All operations may be called on any thread.
class MORVELLACINTO_EXPORT ScriptedHttp {
public:
    /// The errors that the session makes itself.
    static constexpr std::string_view errorDomain = "morvellacinto.scripted.http";
    static constexpr std::int64_t timedOut = 1;
    static constexpr std::int64_t badUrl = 2;
    static constexpr std::int64_t challengeRefused = 3;

    ScriptedHttp(std::shared_ptr<ScriptedDispatch> dispatch, std::shared_ptr<ScriptedClock> clock);
    ScriptedHttp(const ScriptedHttp&) = delete;
    ScriptedHttp& operator=(const ScriptedHttp&) = delete;
    /// Cancels what is left.
    ~ScriptedHttp();

    /// Appends an answer for a task that is started later.
    void plan(HttpAnswer answer);
    /// Answers the oldest started task that waits; throws std::logic_error when none does.
    void answer(HttpAnswer answer);
    /// What sessions with a delegate ask about; at first one "serverTrust". An empty host stands
    /// for the host of the request.
    void setChallenges(std::vector<platform::HttpChallenge> challenges);

    /// Every task that was made, oldest first.
    [[nodiscard]] std::vector<RecordedRequest> requests() const;
    /// Started tasks that wait for `answer`.
    [[nodiscard]] std::size_t waitingCount() const;
    /// Planned answers that no task has taken.
    [[nodiscard]] std::size_t plannedCount() const;
    [[nodiscard]] std::size_t sessionCount() const;

    [[nodiscard]] std::shared_ptr<platform::HttpSession>
    makeSession(platform::HttpSessionConfiguration configuration,
                platform::HttpSessionDelegate* delegate);

    /// Drops all tasks without calling their completions; later ones never start.
    void cancelAll();

private:
    std::shared_ptr<ScriptedHttpService> service_;
};

} // namespace morvellacinto::scripted
