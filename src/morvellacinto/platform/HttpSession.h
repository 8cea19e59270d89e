// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/platform/Interface.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace morvellacinto::platform {

/// One header of a request.
struct HttpHeader {
    std::string name;
    std::string value;
};

/// What a task sends.
struct HttpRequest {
    std::string method = "GET";
    /// As `UrlParser` gave it; a task without a URL fails with an error.
    std::optional<std::string> url;
    std::vector<HttpHeader> headers;
    /// Any bytes; absent means no body.
    std::optional<std::string> body;
    /// Without a URL, what the error names instead: see `KRRequest::refusedUrl`.
    std::string refusedUrl = {};
};

/// When each step of a hop was done, since the hop began; 0 for a step that was not needed.
struct HttpTimings {
    std::chrono::microseconds name{};
    std::chrono::microseconds connection{};
    std::chrono::microseconds tls{};
    std::chrono::microseconds firstByte{};
    std::chrono::microseconds lastByte{};
    bool isReused = false; ///< the connection
};

/// What a task got, besides the body.
struct HttpResponse {
    /// Of the last hop.
    std::string url;
    int status = 0;
    std::optional<HttpTimings> timings = std::nullopt;
};

/// What the host on the other side wants to be convinced of.
struct HttpChallenge {
    /// For example "serverTrust", "basic" or "clientCertificate".
    std::string authenticationMethod;
    std::string host;
    int previousFailureCount = 0;
};

/// What a delegate answers a challenge with.
struct HttpCredential {
    std::string user;
    std::string password;
};

/// What a session does about a challenge.
enum class HttpChallengeDisposition {
    useCredential = 0,
    performDefaultHandling = 1,
    cancelChallenge = 2,
    rejectProtectionSpace = 3,
};

/// Takes the answer to a challenge; call it once, on any thread.
using HttpChallengeAnswer =
    std::function<void(HttpChallengeDisposition, std::optional<HttpCredential>)>;

class HttpSession;
class HttpTask;

/// Asked by a session whose server wants to be trusted or given a credential.
class MORVELLACINTO_EXPORT HttpSessionDelegate : public Interface {
public:
    /// Called on the session's own queue. Who always does default handling need not ask.
    virtual void didReceiveChallenge(HttpSession& session, HttpTask& task,
                                     const HttpChallenge& challenge,
                                     const HttpChallengeAnswer& completionHandler) = 0;
};

/// What all tasks of a session share.
struct HttpSessionConfiguration {
    /// Sent with every request of the session; a request's own header of the same name wins.
    std::vector<HttpHeader> additionalHeaders;
    /// From the start of a task to its last byte, every phase included.
    std::chrono::milliseconds resourceTimeout = std::chrono::hours(24 * 7);
    /// A hint that an implementation may ignore.
    bool shouldUsePipelining = false;
};

/// One request, made by `HttpSession::dataTask`.
class MORVELLACINTO_EXPORT HttpTask : public Interface {
public:
    /// Starts the transfer and returns at once; a second call has no effect. Any thread.
    virtual void resume() = 0;
};

/// Makes tasks that share a configuration. Created by `Platform::makeHttpSession`.
class MORVELLACINTO_EXPORT HttpSession : public Interface {
public:
    /// Called once with (body, response, no error) or with (whatever part of the body had come,
    /// nothing or the response, error).
    using Completion =
        std::function<void(std::optional<std::string> data, std::optional<HttpResponse> response,
                           std::optional<KRError> error)>;

    /// A task that has not started. Its completion runs on the session's own serial queue: a
    /// background thread, never the main one. The task lives until it has finished or, never
    /// started, until its last holder lets go.
    [[nodiscard]] virtual std::shared_ptr<HttpTask> dataTask(HttpRequest request,
                                                             Completion completion) = 0;

    /// Lets started tasks finish, then releases the delegate and the completions. Later tasks
    /// do nothing when started.
    virtual void finishTasksAndInvalidate() = 0;
};

} // namespace morvellacinto::platform
