// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/foundation/TextArgument.h"
#include "morvellacinto/foundation/Uuid.h"
#include "morvellacinto/foundation/Value.h"

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace morvellacinto {

struct AudienceSettings;

/// Which member of the cached answer `cachedTags` gives; any other number gives nothing.
enum KRTagsType : std::size_t {
    KRTagsTypeTags = 1,
    KRTagsTypeMapping = 2,
};

/// The library's entry: fetches geo tags, uploads audience payloads and reads the cached answer.
///
/// An instance holds its four configuration fields and nothing else; the cache is shared by all
/// instances and outlives the process. Creating one starts no work. Work in flight keeps what it
/// needs, so an instance may be destroyed at any time. The fields and, but for
/// `kovraTagsWithCompletion`, the operations may be used on any thread. What needs a platform
/// throws std::logic_error when none is installed. A moved-from one may be destroyed or assigned.
class MORVELLACINTO_EXPORT KRAudienceManager {
public:
    /// Receives the service's answer or an error, exactly one of the two, on the main queue: for an
    /// operation called on the main thread never before it has returned, for one called elsewhere
    /// perhaps before. It is destroyed, with all that it holds, on the main thread too; only a
    /// shutdown destroys it elsewhere. May be called more than once where an operation says so.
    ///
    /// It is never called, and the platform's diagnostics are told why, when
    /// - the answer, or the cached answer that should be served, is no object;
    /// - the call fails and is logged as "tags failed": JSON cannot hold the payload, or what is
    ///   stored as the time of the last upload is no time;
    /// - a later `kovraTagsWithCompletion` supersedes the one that waits for its location.
    /// Nor is it called when that wait is taken back, when the platform is shut down, or when an
    /// exception ends the work: that of the call itself reaches the caller, that of a payload
    /// without a locale or system version the place where the main queue runs.
    using Completion = std::function<void(const std::optional<Object>& answer,
                                          const std::optional<KRError>& error)>;

    /// Without a token the uploads carry none. @{
    explicit KRAudienceManager(std::optional<Uuid> apiToken);
    KRAudienceManager(std::optional<Uuid> apiToken, std::int32_t geoFixDecimals);
    KRAudienceManager(std::optional<Uuid> apiToken, std::int32_t geoFixDecimals,
                      OptionalText trackId); ///@}
    template <std::floating_point Decimals>
    KRAudienceManager(std::optional<Uuid>, Decimals, OptionalText = {}) = delete;
    KRAudienceManager(const KRAudienceManager&) = delete;
    KRAudienceManager& operator=(const KRAudienceManager&) = delete;
    KRAudienceManager(KRAudienceManager&& other) noexcept;
    KRAudienceManager& operator=(KRAudienceManager&& other) noexcept;
    ~KRAudienceManager();

    /// Authenticates uploads. @{
    [[nodiscard]] std::optional<Uuid> apiToken() const;
    void setApiToken(std::optional<Uuid> apiToken); ///@}

    /// How many decimals of latitude and longitude leave the device; 5 by default, cut towards zero
    /// to a whole number when used: 2.9 gives 2, -0.9 and not-a-number give 0. From 10 on
    /// `roundToN` computes with a multiplier that has wrapped; a count of -1 and less or 32 and
    /// more, the infinities included, gives not-a-number, which fails the upload. @{
    [[nodiscard]] float geoFixDecimals() const noexcept;
    void setGeoFixDecimals(float decimals) noexcept; ///@}

    /// When present, stands in for the device's vendor and advertising identifiers in uploads. @{
    [[nodiscard]] std::optional<std::string> trackId() const;
    void setTrackId(OptionalText trackId); ///@}

    /// Whether `kovraTagsWithCompletion` first asks the user for permission to track; at first not.
    /// @{
    [[nodiscard]] bool requestTrackingAuthorization() const noexcept;
    void setRequestTrackingAuthorization(bool request) noexcept; ///@}

    /// Waits for one device location, coarsens it, adds it to the base payload and collects that.
    ///
    /// Call it on the main thread when location may be used: elsewhere the platform's assertion
    /// handler is called, which by default throws platform::AssertionFailure. Where location may
    /// not be used the payload goes without one, from any thread; when the location service fails,
    /// with zeros. The completion is called
    /// - with the service's answer, or the cached one as `collect` tells;
    /// - with the error of the upload;
    /// - perhaps twice: when the user has to be asked for permission to track, the whole operation
    ///   runs now and once more after the answer; when permission for location is withdrawn while
    ///   it waits, it uploads zeros at once and what the next fix brings later;
    /// - never, in the cases that `Completion` lists.
    void kovraTagsWithCompletion(Completion completion);

    /// Uploads `payload` and caches the answer, or, within 90 seconds of the last upload, hands out
    /// the cached answer unless `force` is true.
    ///
    /// With a `trackId` the payload's "vendorId" and "advertId" are set to it first; the caller's
    /// object shows that, copies made of it before do not. Returns before the answer has come.
    /// Without a completion the payload is always uploaded and the answer ignored. The completion
    /// is called once, with the answer or the error of the upload, such as that of a base URL that
    /// is none; or never, in the cases that `Completion` lists. @{
    void collect(Object& payload, Completion completion, bool force = false);
    void collect(Object&& payload, Completion completion, bool force = false) {
        collect(payload, std::move(completion), force);
    } ///@}

    /// The bytes that `collect` would upload now for `payload`: JSON in UTF-8. Nothing is sent, and
    /// the caller's object stays as it is. Throws JsonWriteError when JSON cannot hold the payload.
    [[nodiscard]] std::string previewUpload(const Object& payload) const;

    /// The "tags" or "mapping" of the cached answer, of whatever age and kind, without a request;
    /// nothing when there is no such member.
    [[nodiscard]] std::optional<Value> cachedTags(KRTagsType type) const;

    /// "key=value" pairs joined by "&": one for each string of each member, in order, keys as they
    /// are, values percent-encoded but for ASCII letters, digits and -._~!$&'()*+,;=:[]. Throws
    /// std::invalid_argument, which names the member, for a member that is not an array of strings.
    [[nodiscard]] static std::string toQueryString(const Object& tags);

private:
    std::shared_ptr<AudienceSettings> settings_;
};

} // namespace morvellacinto
