// SPDX-License-Identifier: MIT
#pragma once

#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/platform/HttpSession.h"

#include <atomic>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace morvellacinto::platform {

/// A value that a mapped property cannot hold; the property stays as it was.
struct ValueSkipped {
    std::string className;
    std::string property;
    std::string wanted; ///< the property's type, such as "an integer of 32 bits"
    std::string found;  ///< the kind of the value, never the value itself
};

/// An object's import that ended early; the members after `key` were not set.
struct ImportEnded {
    std::string className;
    std::string key;
    std::string found;
};

/// A class that a node mapping names, and that nothing has made known.
struct ClassUnknown {
    std::string name;
};

/// An answer that is no object: it is not kept, and the completion is not called.
struct AnswerDropped {
    int status = 0;       ///< of HTTP; 0 for a cached answer
    std::size_t size = 0; ///< of the body in bytes; 0 for a cached answer
    std::string found;    ///< such as "an array"
};

/// An answer to an upload from before an erasure: it reaches the completion and is not kept.
struct AnswerNotKept {
    int status = 0;       ///< of HTTP
    std::size_t size = 0; ///< of the body in bytes
};

/// A callback that waited for a location under `key` and is replaced without a call.
struct CallSuperseded {
    std::string key;
};

/// An error that no callback takes.
struct ErrorUnheard {
    std::string of; ///< such as "an upload without a completion"
    KRError error;
};

/// The base URL is none; the upload fails with an error.
struct BaseUrlRefused {
    std::string found; ///< its text without user, query and fragment, or its kind
};

/// A request of a type that makes no transfer: neither callback is called.
struct RequestNotMade {
    std::int64_t type = 0;
};

/// What ended in one of the developer log's fixed lines.
struct LineLogged {
    std::string line;
    std::string reason; ///< the exception's text, also of one that the host's own code threw
};

/// What the platform's implementation has to say, such as of a service that is gone.
struct PlatformNote {
    std::string sentence;
};

// The records from here on are routine: made only for who asks for everything.

/// An upload sets out.
struct UploadBegun {
    static constexpr bool isRoutine = true;
    /// A member of the payload.
    struct Field {
        std::string name;
        std::size_t size = 0; ///< of its value's JSON text in bytes
    };
    std::vector<Field> fields;
    bool isForced = false;
};

/// A location is waited for.
struct LocationAsked {
    static constexpr bool isRoutine = true;
};

/// A location is about to be uploaded.
struct LocationCome {
    static constexpr bool isRoutine = true;
    std::int32_t decimals = 0; ///< that latitude and longitude are cut to
};

/// A request has been answered.
struct AnswerCome {
    static constexpr bool isRoutine = true;
    int status = 0;       ///< of HTTP; 0 when the platform told none
    std::size_t size = 0; ///< of the body in bytes
    std::optional<HttpTimings> timings;
};

/// A request has ended without an answer.
struct RequestFailed {
    static constexpr bool isRoutine = true;
    std::string domain; ///< of the error
    std::int64_t code = 0;
};

/// An answer has been stored.
struct AnswerCached {
    static constexpr bool isRoutine = true;
    bool isDurable = false; ///< it would survive loss of power
};

/// A call was served from the cache.
struct CacheServed {
    static constexpr bool isRoutine = true;
    double ageSeconds = 0; ///< negative when the clock was set back
};

/// The service names another base URL, which is stored as it is.
struct BaseUrlMoved {
    static constexpr bool isRoutine = true;
    std::string to; ///< without user, query and fragment, or its kind
};

/// The user is asked for permission to track.
struct PermissionAsked {
    static constexpr bool isRoutine = true;
};

/// The user has answered.
struct PermissionAnswered {
    static constexpr bool isRoutine = true;
    std::uint64_t status = 0; ///< a `TrackingAuthorization`
};

/// What the library tells of what it did, or did not do, beside its results. No text of the
/// library's holds a coordinate, an identifier, the token or the value of a JSON member.
using Diagnostic =
    std::variant<ValueSkipped, ImportEnded, ClassUnknown, AnswerDropped, CallSuperseded,
                 ErrorUnheard, BaseUrlRefused, RequestNotMade, LineLogged, PlatformNote,
                 AnswerNotKept, UploadBegun, LocationAsked, LocationCome, AnswerCome, RequestFailed,
                 AnswerCached, CacheServed, BaseUrlMoved, PermissionAsked, PermissionAnswered>;

/// Whether a record is made only for who asks for everything.
template <class Record>
inline constexpr bool isRoutine = requires {
    Record::isRoutine;
};

/// The record as one English sentence for a developer.
[[nodiscard]] MORVELLACINTO_EXPORT std::string sentenceOf(const Diagnostic& diagnostic);

/// The record for programs: its name under "event", and its members; times in seconds.
[[nodiscard]] MORVELLACINTO_EXPORT Object objectOf(const Diagnostic& diagnostic);

/// Receives the records. An optional service: a platform without it loses nothing.
class MORVELLACINTO_EXPORT Diagnostics : public Interface {
public:
    /// Any thread, also on several at once, with no lock held.
    virtual void tell(const Diagnostic& diagnostic) noexcept = 0;

    /// Whether routine records are wanted too; asked once, when the platform is installed.
    [[nodiscard]] virtual bool wantsRoutine() const noexcept { return false; }
};

/// Hands a record to the installed platform's diagnostics, if there is a platform and it has them.
/// Never throws; a record for which memory has run out is lost.
MORVELLACINTO_EXPORT void tellDiagnostics(const Diagnostic& diagnostic) noexcept;

/// Which records the installed platform's diagnostics take.
enum class Told { nothing, problems, everything };
MORVELLACINTO_EXPORT extern std::atomic<Told> told; ///< set by `install`

/// The same for the record that `make` gives, made only when there is somebody to tell: otherwise
/// it costs one load.
template <class Make>
void tellMade(const Make& make) noexcept {
    const Told least = isRoutine<decltype(make())> ? Told::everything : Told::problems;
    if (told.load(std::memory_order_relaxed) >= least) {
        try {
            tellDiagnostics(make());
        } catch (...) {
            return; // for want of memory
        }
    }
}

/// The same for a `Record` that is made of `parts`, views being copied.
template <class Record, class... Parts>
void tell(const Parts&... parts) noexcept {
    const auto owned = []<class Part>(const Part& part) {
        if constexpr (std::convertible_to<const Part&, std::string_view>) {
            return std::string(part);
        } else {
            return part;
        }
    };
    tellMade([&] { return Record{owned(parts)...}; });
}

} // namespace morvellacinto::platform
