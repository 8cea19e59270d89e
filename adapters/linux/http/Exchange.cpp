#include "Exchange.h"

#include "RequestHeaders.h"
#include "Route.h"
#include "TrustStore.h"

#include <strings.h>
#include <sys/socket.h>

#include <new>
#include <sstream>
#include <stdexcept>

namespace morvellacinto::native {

namespace {

constexpr long longestIdleSeconds = 15; // of a connection that is to be used again
constexpr std::size_t maximumHeaderBytes = std::size_t(256) << 10U; // trailers included

bool isSwitchOfProtocols(long status) noexcept { return status == 101; }

} // namespace

Exchange::Exchange(ExchangeContext& context, const Route& route,
                   const platform::HttpRequest& request,
                   const std::vector<platform::HttpHeader>& sessionHeaders,
                   std::chrono::milliseconds timeout)
    : context_(context), route_(route), handle_(curl_easy_init()) {
    if (!handle_) {
        throw std::bad_alloc();
    }
    setUpTransport(timeout);
    setUpRequest(request);
    setUpHeaders(request, sessionHeaders);
}

void Exchange::finish(CURLcode result) const {
    if (failure_) {
        throw HttpFailure(*failure_);
    }
    if (result != CURLE_OK) {
        throw HttpFailure::ofCurl(result, route_.url().shown(), detail_.data());
    }
    if (!headersComplete_) { // which libcurl takes for an answer without a body
        throw HttpFailure::ofCurl(CURLE_GOT_NOTHING, route_.url().shown(), {});
    }
    requireAskedFor();
    if (decoder_) {
        decoder_->finish();
    }
}

long Exchange::status() const {
    long status = 0;
    curl_easy_getinfo(handle(), CURLINFO_RESPONSE_CODE, &status);
    return status;
}

std::optional<std::string> Exchange::redirectTarget() const {
    if (Route::isRedirect(status())) {
        curl_header* location = nullptr;
        curl_easy_header(handle(), "Location", 0, CURLH_HEADER, -1, &location);
        if (location != nullptr && *location->value != '\0') {
            return location->value;
        }
    }
    return std::nullopt;
}

std::string Exchange::takeBody() { return decoder_ ? decoder_->take() : std::string(); }

template <class T>
void Exchange::set(CURLoption option, T value) {
    const CURLcode result = curl_easy_setopt(handle(), option, value);
    if (result == CURLE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
    if (result != CURLE_OK) {
        throw std::logic_error("libcurl lacks option " + std::to_string(option));
    }
}

void Exchange::append(List& list, const std::string& line) {
    curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) {
        throw std::bad_alloc();
    }
    static_cast<void>(list.release());
    list.reset(longer);
}

void Exchange::setUpTransport(std::chrono::milliseconds timeout) {
    set(CURLOPT_CURLU, route_.url().handle());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
    set(CURLOPT_MAXAGE_CONN, longestIdleSeconds);
    set(CURLOPT_NOSIGNAL, 1L);
    // A look-up that hangs is left to end by itself instead of being waited for.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_ERRORBUFFER, detail_.data());
    set(CURLOPT_SHARE, context_.share);
    set(CURLOPT_COOKIEFILE, ""); // cookies in memory
    set(CURLOPT_OPENSOCKETFUNCTION, &Exchange::onOpenSocket);
    set(CURLOPT_OPENSOCKETDATA, this);
    set(CURLOPT_PREREQFUNCTION, &Exchange::onConnected); // which may be by a kept connection
    set(CURLOPT_PREREQDATA, this);

    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SSL_CTX_FUNCTION, &Exchange::onTlsContext);
    set(CURLOPT_SSL_CTX_DATA, &context_.trust);
    const char* const none = nullptr; // not libcurl's own store but the one set on the context
    for (const CURLoption option :
         {CURLOPT_CAINFO, CURLOPT_CAPATH, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH}) {
        set(option, none);
    }

    set(CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE)); // no token for a proxy
    if (route_.url().isLoopback()) {
        set(CURLOPT_PROXY, "");
    }
    if (route_.url().isLocalhost()) {
        append(pinnedNames_, "localhost:" + route_.url().port() + ":127.0.0.1,[::1]");
        set(CURLOPT_RESOLVE, pinnedNames_.get());
    }
}

void Exchange::setUpRequest(const platform::HttpRequest& request) {
    const std::string& method = route_.method();
    if (!isHttpToken(method)) {
        throw HttpFailure{HttpErrorCode::invalidRequest, "The method is no HTTP method."};
    }
    if (method == "HEAD") {
        set(CURLOPT_NOBODY, 1L);
    } else if (route_.carriesBody() || method == "POST") {
        const bool hasBody = route_.carriesBody() && request.body;
        set(CURLOPT_POSTFIELDSIZE_LARGE,
            static_cast<curl_off_t>(hasBody ? request.body->size() : 0));
        set(CURLOPT_POSTFIELDS, hasBody ? request.body->data() : "");
    }
    if (method != "HEAD") {
        set(CURLOPT_CUSTOMREQUEST, method.c_str());
    }
    set(CURLOPT_HEADERFUNCTION, &Exchange::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Exchange::onBody);
    set(CURLOPT_WRITEDATA, this);
}

void Exchange::setUpHeaders(const platform::HttpRequest& request,
                            const std::vector<platform::HttpHeader>& sessionHeaders) {
    const std::vector<platform::HttpHeader> none;
    const auto headers = mergedHeaders(
        sessionHeaders, route_.carriesOwnHeaders() ? request.headers : none, context_.userAgent);
    for (const platform::HttpHeader& header : headers) {
        // libcurl sends a header without a value only when it is written with a semicolon.
        append(headers_,
               header.value.empty() ? header.name + ";" : header.name + ": " + header.value);
    }
    if (!hasHeader(headers, "Expect")) {
        append(headers_, "Expect:"); // waiting for a "100 Continue" can cost a second
    }
    set(CURLOPT_HTTPHEADER, headers_.get());
}

// libcurl takes some answers that nothing in the request allows for.
void Exchange::requireAskedFor() const {
    if (isSwitchOfProtocols(status())) {
        throw HttpFailure{HttpErrorCode::malformedAnswer,
                          "The answer switches to a protocol that was not asked for: " +
                              route_.url().shown() + "."};
    }
    // What it decodes itself may break off without its noticing.
    std::istringstream codings(header("Transfer-Encoding"));
    for (std::string coding; std::getline(codings >> std::ws, coding, ',');) {
        coding.erase(coding.find_last_not_of(" \t") + 1);
        if (strcasecmp(coding.c_str(), "chunked") != 0 &&
            strcasecmp(coding.c_str(), "identity") != 0) {
            throw HttpFailure{HttpErrorCode::badContentEncoding,
                              "The answer comes in a transfer coding that was not asked for: " +
                                  route_.url().shown() + "."};
        }
    }
}

void Exchange::receive(std::string_view bytes) {
    if (redirectTarget()) {
        discardedBytes_ += bytes.size();
        if (discardedBytes_ > BodyDecoder::maximumBytes) {
            throw HttpFailure{HttpErrorCode::answerTooLarge, "A redirect's body is too large."};
        }
        return;
    }
    if (!decoder_) {
        requireAskedFor();
        decoder_.emplace(header("Content-Encoding"));
    }
    decoder_->append(bytes);
}

std::string Exchange::header(const char* name) const {
    std::string values;
    curl_header* found = nullptr;
    for (std::size_t index = 0;
         curl_easy_header(handle(), name, index, CURLH_HEADER, -1, &found) == CURLHE_OK; ++index) {
        values += (values.empty() ? "" : ", ") + std::string(found->value);
    }
    return values;
}

void Exchange::receiveHeader(std::string_view line) {
    headersComplete_ = line == "\r\n" || line == "\n";
    headerBytes_ += line.size();
    if (headerBytes_ > maximumHeaderBytes) {
        throw HttpFailure{HttpErrorCode::answerTooLarge,
                          "The answer's headers are larger than " +
                              std::to_string(maximumHeaderBytes >> 10U) + " KiB."};
    }
}

template <class Step>
std::size_t Exchange::attempt(std::size_t count, Step step) noexcept {
    try {
        step();
        return count;
    } catch (const HttpFailure& failure) {
        failure_ = failure;
    } catch (...) {
        failure_ = HttpFailure{HttpErrorCode::other, "The answer could not be kept."};
    }
    return CURL_WRITEFUNC_ERROR;
}

std::size_t Exchange::onHeader(char* line, std::size_t, std::size_t length, void* self) noexcept {
    Exchange& exchange = *static_cast<Exchange*>(self);
    return exchange.attempt(length, [&] { exchange.receiveHeader({line, length}); });
}

std::size_t Exchange::onBody(char* bytes, std::size_t, std::size_t count, void* self) noexcept {
    Exchange& exchange = *static_cast<Exchange*>(self);
    return exchange.attempt(count, [&] { exchange.receive({bytes, count}); });
}

CURLcode Exchange::onTlsContext(CURL*, void* tlsContext, void* trust) noexcept {
    try {
        static_cast<TrustStore*>(trust)->applyTo(static_cast<SSL_CTX*>(tlsContext));
        return CURLE_OK;
    } catch (...) {
        return CURLE_OUT_OF_MEMORY;
    }
}

bool Exchange::tellFound(ExchangeContext::Way way) const noexcept {
    try {
        context_.found(route_.url().origin(), way);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

int Exchange::onConnected(void* self, char*, char*, int, int) noexcept {
    const bool isTold =
        static_cast<Exchange*>(self)->tellFound(ExchangeContext::Way::keptConnection);
    return isTold ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

curl_socket_t Exchange::onOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept {
    if (!static_cast<Exchange*>(self)->tellFound(ExchangeContext::Way::newConnection)) {
        return CURL_SOCKET_BAD;
    }
    // A program that the host starts must not inherit it.
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

} // namespace morvellacinto::native
