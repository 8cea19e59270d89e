#pragma once

#include "BodyDecoder.h"
#include "HttpFailure.h"

#include "morvellacinto/platform/HttpSession.h"

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace morvellacinto::native {

class Route;
class TrustStore;

/// What all exchanges of a platform share.
struct ExchangeContext {
    CURLSH* share; ///< cookies and TLS sessions
    TrustStore& trust;
    const std::string& userAgent;
    enum class Way { keptConnection, newConnection };
    /// The engine's: told when there is a way to an origin, or to the proxy before it. Its address
    /// is known, or was when the connection was made.
    std::function<void(const std::string& origin, Way)> found = nullptr;
};

/// One HTTP request and its answer: an easy handle and all that it points to. Lives on the transfer
/// thread alone.
class Exchange {
public:
    /// Prepares the request for where `route` now is. All arguments but `timeout` must outlive the
    /// exchange. Throws HttpFailure for a method or header that cannot be sent.
    Exchange(ExchangeContext& context, const Route& route, const platform::HttpRequest& request,
             const std::vector<platform::HttpHeader>& sessionHeaders,
             std::chrono::milliseconds timeout);
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange() = default;

    [[nodiscard]] CURL* handle() const noexcept { return handle_.get(); }

    /// Judges the exchange that libcurl ended with `result`. Throws HttpFailure when there is no
    /// whole answer.
    void finish(CURLcode result) const;
    /// 0 before the answer's headers have come.
    [[nodiscard]] long status() const;
    /// Where the answer redirects to, if it is to be followed there.
    [[nodiscard]] std::optional<std::string> redirectTarget() const;
    /// The body as far as it has come.
    [[nodiscard]] std::string takeBody();

private:
    struct Free {
        void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };
    using List = std::unique_ptr<curl_slist, Free>;

    template <class T>
    void set(CURLoption option, T value);
    static void append(List& list, const std::string& line);
    void setUpTransport(std::chrono::milliseconds timeout);
    void setUpRequest(const platform::HttpRequest& request);
    void setUpHeaders(const platform::HttpRequest& request,
                      const std::vector<platform::HttpHeader>& sessionHeaders);
    void requireAskedFor() const;
    void receiveHeader(std::string_view line);
    void receive(std::string_view bytes);
    /// `count`, or what ends the transfer after `failure_` has been set.
    template <class Step>
    [[nodiscard]] std::size_t attempt(std::size_t count, Step step) noexcept;
    [[nodiscard]] std::string header(const char* name) const;
    [[nodiscard]] bool tellFound(ExchangeContext::Way way) const noexcept;

    static std::size_t onHeader(char* line, std::size_t, std::size_t length, void* self) noexcept;
    static std::size_t onBody(char* bytes, std::size_t, std::size_t count, void* self) noexcept;
    static CURLcode onTlsContext(CURL*, void* tlsContext, void* trust) noexcept;
    static int onConnected(void* self, char*, char*, int, int) noexcept;
    static curl_socket_t onOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept;

    ExchangeContext& context_;
    const Route& route_;
    List headers_;
    List pinnedNames_;
    std::array<char, CURL_ERROR_SIZE> detail_{};
    bool headersComplete_ = false;
    std::size_t headerBytes_ = 0;
    std::optional<BodyDecoder> decoder_;
    std::size_t discardedBytes_ = 0;
    std::optional<HttpFailure> failure_;
    // Last, so that it is cleaned up while all that it refers to is there.
    std::unique_ptr<CURL, Free> handle_;
};

} // namespace morvellacinto::native
