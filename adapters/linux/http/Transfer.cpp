// SPDX-License-Identifier: MIT
#include "Transfer.h"

#include "CurlSession.h"
#include "HttpFailure.h"
#include "Trust.h"

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr const char* userAgent = "Morvellacinto"; // and nothing that tells devices apart
constexpr std::size_t maximumBodyBytes = std::size_t(64) << 20U; // decoded
constexpr long longestIdleSeconds = 15; // of a connection that is to be used again
constexpr std::chrono::milliseconds longestTimeout = std::chrono::years(1); // as good as none

// A program that the host starts must not inherit it.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) noexcept {
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

} // namespace

Transfer::Transfer(std::shared_ptr<CurlSession> session, platform::HttpRequest request,
                   platform::HttpSession::Completion completion)
    : session_(std::move(session)), request_(std::move(request)),
      completion_(std::move(completion)),
      error_(HttpFailure{HttpErrorCode::other, "The transfer failed: there is no memory left."}
                 .asError("")) {}

void Transfer::start() {
    deadline_ =
        std::chrono::steady_clock::now() + std::clamp(session_->configuration().resourceTimeout,
                                                      std::chrono::milliseconds(0), longestTimeout);
}

void Transfer::passGate(UploadConsent consent, const UploadQuestion& ask) noexcept {
    attempt([&] {
        if (consent == UploadConsent::withheld) {
            throw HttpFailure{HttpErrorCode::uploadWithheld, "Consent to upload is withheld."};
        }
        isApproved_ = isApproved_ || (consent == UploadConsent::allowed && !answer_);
        if (isApproved_) {
            return;
        }
        if (!answer_) {
            answer_ = std::make_shared<Answer>();
            ask(request_, [answer = answer_](std::optional<platform::HttpRequest> request) {
                if (!answer->isGiven.exchange(true)) {
                    answer->request = std::move(request);
                    answer->isComplete = true;
                }
            });
        }
        if (!answer_->isComplete) {
            if (deadline_ <= std::chrono::steady_clock::now()) {
                throw HttpFailure{HttpErrorCode::uploadRefused,
                                  "The host did not say in time whether to send it."};
            }
        } else if (answer_->request) {
            request_ = *std::move(answer_->request);
            isApproved_ = true;
        } else {
            throw HttpFailure{HttpErrorCode::uploadRefused, "The host refused to send it."};
        }
    });
}

bool Transfer::begin(CURLM* multi, CURLSH* tlsSessions, Trust& trust,
                     const std::optional<std::string>& proxy) noexcept {
    return !hasFailed_ && attempt([&] {
        if (!hop_) {
            hop_ = firstHop(request_);
        }
        if (!handle_) {
            handle_.reset(curl_easy_init());
            requireMemory(handle_ != nullptr);
            set(CURLOPT_COOKIEFILE, ""); // cookies, in memory
        }
        answerHeaders_ = {};
        bodyBytes_ = 0;
        isCut_ = false;
        set(CURLOPT_PRIVATE, this);
        set(CURLOPT_SHARE, tlsSessions);
        trust.applyTo(handle_.get());
        if (proxy || hop_->url.isLoopback()) {
            set(CURLOPT_PROXY, hop_->url.isLoopback() ? "" : proxy->c_str());
            set(CURLOPT_NOPROXY, ""); // the environment's exceptions are not for this one
        }
        setUpHop();
        setUpHeaders();
        multi_ = multi;
        requireMemory(curl_multi_add_handle(multi, handle_.get()) == CURLM_OK);
    });
}

bool Transfer::end(CURLcode result) noexcept {
    leaveMulti();
    bool goesOn = false;
    if (!hasFailed_) {
        attempt([&] {
            requireAnswer(result);
            if (const char* const location = redirectLocation()) {
                Hop next = nextHop(*hop_, status(), location);
                if (next.url.origin() != hop_->url.origin()) {
                    handle_.reset(); // and its cookies, which libcurl would send to another port
                }
                hop_ = std::move(next);
                goesOn = true;
            }
        });
    }
    if (!goesOn && status() != 0) {
        attempt([&] { response_ = {hop_->url.text(), static_cast<int>(status()), timings()}; });
    }
    if (!goesOn) {
        handle_.reset();
    }
    return goesOn;
}

void Transfer::fail(const HttpFailure& failure) noexcept {
    hasFailed_ = true;
    try {
        const auto url = CurlUrl::parse(request_.url.value_or(""));
        error_ = failure.asError(hop_  ? hop_->url.shown()
                                 : url ? url->shown()
                                       : request_.refusedUrl);
    } catch (const std::bad_alloc&) {
        // `error_` tells of that already.
    }
}

void Transfer::complete() {
    const auto completion = std::move(completion_); // and is released here
    if (completion) {
        completion(response_ ? std::optional(std::move(body_)) : std::nullopt, response_,
                   hasFailed_ ? std::optional(std::move(error_)) : std::nullopt);
    }
}

template <class Step>
bool Transfer::attempt(Step step) noexcept {
    try {
        step();
        return true;
    } catch (const HttpFailure& failure) {
        fail(failure);
    } catch (...) {
        hasFailed_ = true; // for want of memory
    }
    return false;
}

template <class T>
void Transfer::set(CURLoption option, T value) {
    requireMemory(curl_easy_setopt(handle_.get(), option, value) == CURLE_OK);
}

void Transfer::setUpHop() {
    set(CURLOPT_CURLU, hop_->url.handle());
    set(CURLOPT_PROTOCOLS_STR, hop_->url.hasScheme("http") ? "http" : "https");
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_MAXAGE_CONN, longestIdleSeconds);
    set(CURLOPT_NOSIGNAL, 1L);
    // A look-up that hangs is left to end by itself instead of being waited for.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_ERRORBUFFER, detail_.data());
    set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_HTTPGET, 1L); // whatever the hop before was
    if (hop_->method == "HEAD") {
        set(CURLOPT_NOBODY, 1L);
    } else {
        if (hop_->carriesBody || hop_->method == "POST") {
            const std::string_view body =
                hop_->carriesBody ? std::string_view(*request_.body) : std::string_view("");
            set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
            set(CURLOPT_POSTFIELDS, body.data());
        }
        set(CURLOPT_CUSTOMREQUEST, hop_->method.c_str());
    }
    set(CURLOPT_HEADERFUNCTION, &Transfer::onBytes<&Transfer::receiveHeader>);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Transfer::onBytes<&Transfer::receiveBody>);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
    set(CURLOPT_XFERINFODATA, this);
}

// What the host sets wins over what libcurl sets by itself.
void Transfer::setUpHeaders() {
    headers_.reset(curl_slist_append(nullptr, "Expect:")); // a "100 Continue" can cost a second
    requireMemory(headers_ != nullptr);
    const std::vector<platform::HttpHeader> none;
    for (const auto& [name, value] :
         mergedHeaders(session_->configuration().additionalHeaders,
                       hop_->carriesOwnHeaders ? request_.headers : none)) {
        // libcurl sends a header without a value only when it is written with a semicolon.
        std::string line = name;
        line.append(value.empty() ? ";" : ": ").append(value);
        requireMemory(curl_slist_append(headers_.get(), line.c_str()) != nullptr);
    }
    set(CURLOPT_HTTPHEADER, headers_.get());
    set(CURLOPT_USERAGENT, userAgent);
    set(CURLOPT_ACCEPT_ENCODING, "gzip");
}

void Transfer::requireAnswer(CURLcode result) const {
    const std::string url = hop_->url.shown();
    if (result != CURLE_OK) {
        throw HttpFailure::ofCurl(result, url, detail_.data());
    }
    // libcurl takes these for answers without a body.
    if (status() == 101) {
        throw HttpFailure{HttpErrorCode::malformedAnswer,
                          "The answer switches to a protocol that was not asked for: " + url + "."};
    }
    if (!answerHeaders_.areComplete() || status() < 200) {
        throw HttpFailure::ofCurl(CURLE_GOT_NOTHING, url, {});
    }
    if (isCut_) {
        throw HttpFailure{HttpErrorCode::connectionLost, "The answer from " + url + " was cut."};
    }
}

void Transfer::leaveMulti() noexcept {
    curl_multi_remove_handle(std::exchange(multi_, nullptr), handle_.get());
}

long Transfer::status() const noexcept {
    long status = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
}

platform::HttpTimings Transfer::timings() const noexcept {
    const auto at = [this](CURLINFO moment) {
        curl_off_t microseconds = 0;
        curl_easy_getinfo(handle_.get(), moment, &microseconds);
        return std::chrono::microseconds(microseconds);
    };
    long newConnections = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_NUM_CONNECTS, &newConnections);
    return {at(CURLINFO_NAMELOOKUP_TIME_T), at(CURLINFO_CONNECT_TIME_T),
            at(CURLINFO_APPCONNECT_TIME_T), at(CURLINFO_STARTTRANSFER_TIME_T),
            at(CURLINFO_TOTAL_TIME_T),      newConnections == 0};
}

const char* Transfer::redirectLocation() const noexcept {
    curl_header* location = nullptr;
    if (isRedirect(status())) {
        curl_easy_header(handle_.get(), "Location", 0, CURLH_HEADER, -1, &location);
    }
    return location != nullptr && *location->value != '\0' ? location->value : nullptr;
}

void Transfer::receiveHeader(std::string_view line) {
    answerHeaders_.receive(line);
    isCut_ = answerHeaders_.areComplete() && !answerHeaders_.tellLength() &&
             hop_->method != "HEAD" && status() >= 200 && status() != 204 && status() != 304 &&
             tls() != nullptr;
}

void Transfer::receiveBody(std::string_view bytes) {
    if (bodyBytes_ == 0) { // a server may send many headers to search, and the body in crumbs
        isBodyKept_ = redirectLocation() == nullptr;
    }
    bodyBytes_ += bytes.size();
    if (bodyBytes_ > maximumBodyBytes) {
        throw HttpFailure{HttpErrorCode::answerTooLarge, "The answer is larger than 64 MiB."};
    }
    if (isBodyKept_) {
        body_.append(bytes);
    }
}

const SSL* Transfer::tls() const noexcept {
    curl_tlssessioninfo* info = nullptr;
    curl_easy_getinfo(handle_.get(), CURLINFO_TLS_SSL_PTR, &info);
    return info != nullptr ? static_cast<const SSL*>(info->internals) : nullptr;
}

// A body that lasts as long as its connection may have been cut by anyone on the way, unless TLS
// says that this is the end. libcurl overlooks that. It calls this once more before it closes.
int Transfer::onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    const SSL* const tls = transfer.isCut_ ? transfer.tls() : nullptr;
    transfer.isCut_ &= tls == nullptr || (SSL_get_shutdown(tls) & SSL_RECEIVED_SHUTDOWN) == 0;
    return 0;
}

template <void (Transfer::*receive)(std::string_view)>
std::size_t Transfer::onBytes(char* bytes, std::size_t, std::size_t count, void* self) noexcept {
    auto& transfer = *static_cast<Transfer*>(self);
    const bool isReceived = transfer.attempt([&] { (transfer.*receive)({bytes, count}); });
    return isReceived ? count : CURL_WRITEFUNC_ERROR;
}

} // namespace morvellacinto::native
