// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/TextArgument.h"
#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/foundation/Value.h"

#include <cstddef>
#include <optional>
#include <string>

namespace morvellacinto {

/// Which transfer a request makes. Any other number is kept on a request, which then makes none.
enum KRRequestType : std::ptrdiff_t {
    KRRequestTypeGet = 0,
    KRRequestTypePost = 1,
};

/// An immutable description of one call to the service: the kind of call, where it goes, the body
/// already written as JSON, and the token that authenticates it.
class MORVELLACINTO_EXPORT KRRequest {
public:
    /// Parameters, kept but never sent; of a type of their own, so that no payload becomes them.
    struct Params {
        explicit Params(Object given) noexcept : members(std::move(given)) {}
        Object members;
    };
    /// What becomes the body: an object or an array, or nothing, which nullptr stands for too.
    class Payload : public std::optional<Value> {
    public:
        Payload(std::nullopt_t = std::nullopt) noexcept {}
        Payload(std::nullptr_t) noexcept {}
        Payload(Object object) noexcept : optional(std::move(object)) {}
        Payload(Array array) noexcept : optional(std::move(array)) {}
        Payload(Value value) noexcept : optional(std::move(value)) {}
        template <class T>
        Payload(std::optional<T> value) : optional(std::move(value)) {}
    };

    /// `url` that the platform's parser refuses gives a request without a URL, which fails when it
    /// is made. Throws JsonWriteError when JSON cannot hold `payload`, std::logic_error when no
    /// platform is installed.
    KRRequest(KRRequestType type, TextArgument url, std::optional<Params> params,
              const Payload& payload, std::optional<Uuid> auth);
    KRRequest(const KRRequest&) = default; // also for what is moved: a request never changes
    KRRequest& operator=(const KRRequest&) = delete;
    ~KRRequest() = default;

    /// As the constructor; what is not given is none. @{
    [[nodiscard]] static KRRequest requestWithType(KRRequestType type, TextArgument url);
    [[nodiscard]] static KRRequest requestWithType(KRRequestType type, TextArgument url,
                                                   Params params);
    [[nodiscard]] static KRRequest requestWithType(KRRequestType type, TextArgument url,
                                                   const Payload& payload,
                                                   std::optional<Uuid> auth);
    [[nodiscard]] static KRRequest requestWithType(KRRequestType type, TextArgument url,
                                                   std::optional<Params> params,
                                                   const Payload& payload,
                                                   std::optional<Uuid> auth); ///@}

    /// The compact JSON text, in UTF-8, of an object or array; nothing for nothing. Throws
    /// JsonWriteError for what JSON cannot hold.
    [[nodiscard]] static std::optional<std::string> nativeToHttpData(const Payload& native);

    /// As given, but for the payload, which is JSON text, and for the URL as it was parsed. @{
    [[nodiscard]] KRRequestType type() const noexcept { return type_; }
    [[nodiscard]] const std::optional<std::string>& url() const noexcept { return url_; }
    /// The text that was no URL, without user, query and fragment; empty when there is a URL.
    [[nodiscard]] const std::string& refusedUrl() const noexcept { return refusedUrl_; }
    [[nodiscard]] const std::optional<Object>& params() const noexcept { return params_; }
    [[nodiscard]] const std::optional<std::string>& payload() const noexcept { return payload_; }
    [[nodiscard]] const std::optional<Uuid>& apiToken() const noexcept { return apiToken_; } ///@}

private:
    KRRequestType type_;
    std::optional<std::string> url_;
    std::string refusedUrl_;
    std::optional<Object> params_;
    std::optional<std::string> payload_;
    std::optional<Uuid> apiToken_;
};

} // namespace morvellacinto
