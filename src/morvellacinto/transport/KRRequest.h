#pragma once

#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/foundation/Value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

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
    /// `url` that the platform's parser refuses gives a request without a URL, which fails when it
    /// is made. `params` are kept but never sent. `payload`, an object or an array, becomes the
    /// body; throws JsonWriteError when JSON cannot hold it. Throws std::logic_error when no
    /// platform is installed.
    KRRequest(KRRequestType type, std::string_view url, std::optional<Object> params,
              const std::optional<Value>& payload, std::optional<Uuid> auth);

    [[nodiscard]] static KRRequest requestWithType(KRRequestType type, std::string_view url);
    [[nodiscard]] static KRRequest requestWithType(KRRequestType type, std::string_view url,
                                                   std::optional<Object> params);
    [[nodiscard]] static KRRequest requestWithType(KRRequestType type, std::string_view url,
                                                   const std::optional<Value>& payload,
                                                   std::optional<Uuid> auth);
    [[nodiscard]] static KRRequest requestWithType(KRRequestType type, std::string_view url,
                                                   std::optional<Object> params,
                                                   const std::optional<Value>& payload,
                                                   std::optional<Uuid> auth);

    /// The compact JSON text, in UTF-8, of an object or array; nothing for nothing. Throws
    /// JsonWriteError for what JSON cannot hold.
    [[nodiscard]] static std::optional<std::string>
    nativeToHttpData(const std::optional<Value>& native);

    [[nodiscard]] KRRequestType type() const noexcept { return type_; }
    [[nodiscard]] const std::optional<std::string>& url() const noexcept { return url_; }
    [[nodiscard]] const std::optional<Object>& params() const noexcept { return params_; }
    [[nodiscard]] const std::optional<std::string>& payload() const noexcept { return payload_; }
    [[nodiscard]] const std::optional<Uuid>& apiToken() const noexcept { return apiToken_; }

private:
    KRRequestType type_;
    std::optional<std::string> url_;
    std::optional<Object> params_;
    std::optional<std::string> payload_;
    std::optional<Uuid> apiToken_;
};

} // namespace morvellacinto
