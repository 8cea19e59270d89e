// SPDX-License-Identifier: MIT
#include "Headers.h"

#include "HttpFailure.h"

#include <strings.h>

#include <algorithm>
#include <initializer_list>

namespace morvellacinto::native {

namespace {

bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names) noexcept {
    return std::any_of(names.begin(), names.end(), [name](std::string_view other) {
        return name.size() == other.size() &&
               strncasecmp(name.data(), other.data(), name.size()) == 0;
    });
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view space = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(space), text.size()));
    return text.substr(0, text.find_last_not_of(space) + 1);
}

void requireSendable(const platform::HttpHeader& header) {
    if (!isHttpToken(header.name)) {
        throw HttpFailure{HttpErrorCode::invalidRequest, "The name of a header is no header name."};
    }
    // They frame the message or route it: a value that contradicts it opens the way to smuggling.
    if (isOneOf(header.name, {"Connection", "Content-Length", "Host", "Transfer-Encoding"})) {
        throw HttpFailure{HttpErrorCode::invalidRequest,
                          "The header " + header.name + " is the transport's own to set."};
    }
    if (!std::all_of(header.value.begin(), header.value.end(), [](unsigned char byte) {
            return (byte >= ' ' && byte != 0x7f) || byte == '\t';
        })) {
        throw HttpFailure{HttpErrorCode::invalidRequest,
                          "The header " + header.name + " holds a control character."};
    }
}

} // namespace

bool isHttpToken(std::string_view text) noexcept {
    constexpr std::string_view allowed = "!#$%&'*+-.^_`|~0123456789abcdefghijklmnopqrstuvwxyz"
                                         "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

std::vector<platform::HttpHeader>
mergedHeaders(const std::vector<platform::HttpHeader>& sessionHeaders,
              const std::vector<platform::HttpHeader>& requestHeaders) {
    std::vector<platform::HttpHeader> merged = requestHeaders;
    for (const platform::HttpHeader& inherited : sessionHeaders) {
        if (std::none_of(requestHeaders.begin(), requestHeaders.end(),
                         [&](const auto& own) { return isOneOf(own.name, {inherited.name}); })) {
            merged.push_back(inherited);
        }
    }
    std::for_each(merged.begin(), merged.end(), requireSendable);
    return merged;
}

void AnswerHeaders::receive(std::string_view line) {
    bytes_ += line.size();
    if (bytes_ > maximumBytes) {
        throw HttpFailure{HttpErrorCode::answerTooLarge,
                          "The answer's headers are larger than 256 KiB."};
    }
    const std::string_view name = line.substr(0, line.find(':'));
    const std::string_view value = trimmed(line.substr(std::min(name.size() + 1, line.size())));
    if (line.starts_with("HTTP/")) { // also after a "100 Continue"
        areComplete_ = isPacked_ = isChunked_ = false;
        length_.clear();
    } else if (trimmed(line).empty()) {
        areComplete_ = true;
    } else if (areComplete_) {
        return; // a trailer
    } else if (isOneOf(name, {"Content-Encoding", "Transfer-Encoding"})) {
        const bool packs = isOneOf(value, {"gzip", "x-gzip"});
        if (packs ? isPacked_ : !isOneOf(value, {"", "identity", "chunked"})) {
            throw HttpFailure{HttpErrorCode::badContentEncoding,
                              "The answer comes in an encoding that was not asked for."};
        }
        isPacked_ = isPacked_ || packs;
        isChunked_ = isChunked_ || isOneOf(value, {"chunked"});
    } else if (isOneOf(name, {"Content-Length"})) {
        if (value.empty() || value.find_first_not_of("0123456789") != std::string_view::npos ||
            (!length_.empty() && length_ != value)) {
            throw HttpFailure{HttpErrorCode::malformedAnswer,
                              "The answer's length is no number, or told twice and differently."};
        }
        length_ = value;
    }
}

} // namespace morvellacinto::native
