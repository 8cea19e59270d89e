// SPDX-License-Identifier: MIT
#pragma once

#include "Headers.h"
#include "Libcurl.h"
#include "Redirects.h"

#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/platform/HttpSession.h"
#include <morvellacinto/native/UploadConsent.h>

#include <curl/curl.h>
#include <openssl/types.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

class CurlSession;
class Trust;
struct HttpFailure;

/// One request from its start to its end, redirects included: an easy handle and all that it points
/// to. From `start` on it belongs to the transfer thread, and from its end on to the session's
/// queue.
class Transfer {
public:
    Transfer(std::shared_ptr<CurlSession> session, platform::HttpRequest request,
             platform::HttpSession::Completion completion);
    [[nodiscard]] CurlSession& session() const noexcept { return *session_; }

    /// The time-out counts from here.
    void start();
    [[nodiscard]] std::chrono::steady_clock::time_point deadline() const { return deadline_; }

    /// Judges the next hop, not in a turn; before the first the host may have to be asked.
    void passGate(UploadConsent consent, const UploadQuestion& ask) noexcept;
    /// Also what has failed, which needs no room. While it is false, `passGate` is called again.
    [[nodiscard]] bool mayBegin(bool hasRoom) const {
        return hasFailed_ || (isApproved_ && hasRoom);
    }

    /// In a turn, as the next two. Adds the present hop to `multi`, with this object as its
    /// CURLOPT_PRIVATE. False when it has failed, which ends the transfer.
    [[nodiscard]] bool begin(CURLM* multi, CURLSH* tlsSessions, Trust& trust,
                             const std::optional<std::string>& proxy) noexcept;
    /// Judges the hop that libcurl ended with `result`. True when there is a next one to begin;
    /// else the transfer has ended.
    [[nodiscard]] bool end(CURLcode result) noexcept;
    /// Takes a hop under way out of the multi handle, as `end` does.
    void leaveMulti() noexcept;

    void fail(const HttpFailure& failure) noexcept;
    /// Hands what the transfer ended with to the completion, and lets go of that.
    void complete();

private:
    struct Answer {
        std::atomic<bool> isGiven = false;
        std::atomic<bool> isComplete = false;
        std::optional<platform::HttpRequest> request;
    };

    template <class Step>
    bool attempt(Step step) noexcept;
    template <class T>
    void set(CURLoption option, T value);
    void setUpHop();
    void setUpHeaders();
    void requireAnswer(CURLcode result) const;
    /// 0 before the answer's headers have come.
    [[nodiscard]] long status() const noexcept;
    [[nodiscard]] platform::HttpTimings timings() const noexcept; ///< of the last hop
    /// Where the answer redirects to; null when it is not to be followed.
    [[nodiscard]] const char* redirectLocation() const noexcept;
    void receiveHeader(std::string_view line);
    void receiveBody(std::string_view bytes);
    /// Null without TLS, and when it is gone.
    [[nodiscard]] const SSL* tls() const noexcept;
    static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) noexcept;

    template <void (Transfer::*receive)(std::string_view)>
    static std::size_t onBytes(char* bytes, std::size_t, std::size_t count, void* self) noexcept;

    const std::shared_ptr<CurlSession> session_;
    platform::HttpRequest request_; // as the host answered, from the first hop on
    std::shared_ptr<Answer> answer_;
    bool isApproved_ = false;
    platform::HttpSession::Completion completion_;
    std::chrono::steady_clock::time_point deadline_;

    std::optional<Hop> hop_;
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers_{nullptr, &curl_slist_free_all};
    std::array<char, CURL_ERROR_SIZE> detail_{};
    AnswerHeaders answerHeaders_;
    std::size_t bodyBytes_ = 0;
    bool isBodyKept_ = true; ///< false for a redirect's
    bool isCut_ = false;     ///< a body of untold length, for all that TLS has said so far
    // After all that it refers to.
    std::unique_ptr<CURL, InTurn<&curl_easy_cleanup>> handle_;
    CURLM* multi_ = nullptr; ///< while the handle is in it

    std::string body_;
    std::optional<platform::HttpResponse> response_;
    bool hasFailed_ = false;
    KRError error_; ///< made beforehand for the case that memory runs out
};

} // namespace morvellacinto::native
