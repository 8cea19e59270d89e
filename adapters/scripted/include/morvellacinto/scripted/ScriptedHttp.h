// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/platform/HttpSession.h"
#include "morvellacinto/scripted/ScriptedClock.h"
#include "morvellacinto/scripted/ScriptedDispatch.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace morvellacinto::scripted {

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
    /// As the library made it.
    platform::HttpRequest request;
    platform::HttpSessionConfiguration configuration;
    /// Sessions are numbered from 0 as they are made.
    std::size_t session = 0;
    /// Whether the session had a delegate to ask.
    bool hasDelegate = false;
    int resumeCount = 0;
    /// Whether the request left the phone.
    bool isSent = false;
    /// How often the session was told to finish and invalidate itself.
    int invalidationCount = 0;

    /// The request's and, of other names, the session's additional ones.
    [[nodiscard]] MORVELLACINTO_EXPORT std::vector<platform::HttpHeader> sentHeaders() const;
};

/// The service behind the scripted sessions: records every task and answers as planned.
///
/// A started task takes the next planned answer, or waits for `answer`. Before the answer, the
/// session's delegate is asked about each challenge; the task fails unless each is answered with
/// default handling and no credential. All this and the completion happens in blocks of the
/// background queue. A task that has no answer when its resource time-out has passed on the
/// scripted clock fails, and so does one whose URL is absent or is none; schemes are not judged.
/// All operations may be called on any thread. Lives in a shared pointer, which its sessions hold.
class MORVELLACINTO_EXPORT ScriptedHttp : public std::enable_shared_from_this<ScriptedHttp> {
public:
    /// The errors that the session makes itself.
    static constexpr std::string_view errorDomain = "morvellacinto.scripted.http";
    static constexpr std::int64_t timedOut = 1;         ///< the resource time-out
    static constexpr std::int64_t badUrl = 2;           ///< absent or none
    static constexpr std::int64_t challengeRefused = 3; ///< by the delegate

    ScriptedHttp(std::shared_ptr<ScriptedDispatch> dispatch, std::shared_ptr<ScriptedClock> clock);

    /// Appends an answer for a task that is started later.
    void plan(HttpAnswer answer);
    /// Answers the oldest started task that waits; throws std::logic_error when none does.
    void answer(HttpAnswer answer);
    /// What sessions with a delegate ask about; at first one "serverTrust". An empty host stands
    /// for the host of the request.
    void setChallenges(std::vector<platform::HttpChallenge> challenges);

    /// Every task that was made, oldest first.
    [[nodiscard]] std::vector<RecordedRequest> requests() const;
    [[nodiscard]] std::size_t sessionCount() const; ///< ended ones too

    /// As `platform::Platform::makeHttpSession`.
    [[nodiscard]] std::shared_ptr<platform::HttpSession>
    makeSession(platform::HttpSessionConfiguration configuration,
                platform::HttpSessionDelegate* delegate);

    /// Drops all tasks without calling their completions; later ones never start.
    void cancelAll();

private:
    class Session;
    class Task;

    const std::shared_ptr<ScriptedDispatch> dispatch_;
    const std::shared_ptr<ScriptedClock> clock_;
    // Guards what follows. Host code is called and destroyed without it.
    mutable std::mutex mutex_;
    std::deque<HttpAnswer> planned_;
    std::vector<platform::HttpChallenge> challenges_{{"serverTrust", "", 0}};
    std::vector<RecordedRequest> records_;
    std::vector<int> invalidationCounts_;       // one for each session
    std::vector<std::shared_ptr<Task>> active_; // started and not finished, oldest first
    bool isCancelled_ = false;
};

} // namespace morvellacinto::scripted
