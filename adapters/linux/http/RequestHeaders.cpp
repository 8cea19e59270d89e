#include "RequestHeaders.h"

#include "HttpFailure.h"

#include <strings.h>

#include <algorithm>
#include <array>

namespace morvellacinto::native {

namespace {

// They frame the message or route it: a value that contradicts it opens the way to smuggling.
constexpr std::array<std::string_view, 4> transportsOwn = {"Connection", "Content-Length", "Host",
                                                           "Transfer-Encoding"};

bool sameName(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

void requireSendable(const platform::HttpHeader& header) {
    if (!isHttpToken(header.name)) {
        throw HttpFailure{HttpErrorCode::invalidRequest, "The name of a header is no header name."};
    }
    const bool clean = std::all_of(header.value.begin(), header.value.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return (byte >= ' ' && byte != 0x7f) || byte == '\t';
    });
    const bool own =
        std::any_of(transportsOwn.begin(), transportsOwn.end(),
                    [&header](std::string_view name) { return sameName(name, header.name); });
    if (!clean || own) {
        throw HttpFailure{
            HttpErrorCode::invalidRequest,
            "The header " + header.name +
                (own ? " is the transport's own to set." : " holds a control character.")};
    }
}

} // namespace

bool isHttpToken(std::string_view text) noexcept {
    constexpr std::string_view others = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [others](char character) {
        return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
               (character >= 'a' && character <= 'z') ||
               others.find(character) != std::string_view::npos;
    });
}

bool hasHeader(const std::vector<platform::HttpHeader>& headers, std::string_view name) noexcept {
    return std::any_of(headers.begin(), headers.end(), [name](const platform::HttpHeader& header) {
        return sameName(header.name, name);
    });
}

std::vector<platform::HttpHeader>
mergedHeaders(const std::vector<platform::HttpHeader>& sessionHeaders,
              const std::vector<platform::HttpHeader>& requestHeaders,
              const std::string& userAgent) {
    std::vector<platform::HttpHeader> merged;
    std::copy_if(sessionHeaders.begin(), sessionHeaders.end(), std::back_inserter(merged),
                 [&requestHeaders](const platform::HttpHeader& header) {
                     return !hasHeader(requestHeaders, header.name);
                 });
    merged.insert(merged.end(), requestHeaders.begin(), requestHeaders.end());
    std::for_each(merged.begin(), merged.end(), requireSendable);
    if (!hasHeader(merged, "Accept-Encoding")) {
        merged.push_back({"Accept-Encoding", "gzip"});
    }
    if (!userAgent.empty() && !hasHeader(merged, "User-Agent")) {
        merged.push_back({"User-Agent", userAgent});
    }
    return merged;
}

} // namespace morvellacinto::native
