#pragma once

#include "morvellacinto/foundation/KRError.h"
#include "morvellacinto/platform/Interface.h"

#include <atomic>
#include <concepts>
#include <exception>
#include <variant>

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

/// What the library tells of what it did, or did not do, beside its results. No text of the
/// library's holds a coordinate, an identifier, the token or the value of a JSON member.
using Diagnostic =
    std::variant<ValueSkipped, ImportEnded, ClassUnknown, AnswerDropped, AnswerNotKept,
                 CallSuperseded, ErrorUnheard, BaseUrlRefused, RequestNotMade, LineLogged>;

/// The record as one English sentence for a developer.
[[nodiscard]] MORVELLACINTO_EXPORT std::string sentenceOf(const Diagnostic& diagnostic);

/// Receives the records. An optional service: a platform without it loses nothing.
class MORVELLACINTO_EXPORT Diagnostics : public Interface {
public:
    /// Any thread, also on several at once, with no lock held.
    virtual void tell(const Diagnostic& diagnostic) noexcept = 0;
};

/// Hands a record to the installed platform's diagnostics, if there is a platform and it has them.
/// Never throws; a record for which memory has run out is lost.
MORVELLACINTO_EXPORT void tellDiagnostics(const Diagnostic& diagnostic) noexcept;

/// Whether the installed platform has diagnostics.
MORVELLACINTO_EXPORT extern std::atomic<bool> hasDiagnostics;

/// The same for a `Record` that is made of `parts`, views being copied, only when there is somebody
/// to tell: otherwise it costs one load.
template <class Record, class... Parts>
void tell(const Parts&... parts) noexcept {
    const auto owned = []<class Part>(const Part& part) {
        if constexpr (std::convertible_to<const Part&, std::string_view>) {
            return std::string(part);
        } else {
            return part;
        }
    };
    if (hasDiagnostics.load(std::memory_order_relaxed)) {
        try {
            tellDiagnostics(Record{owned(parts)...});
        } catch (const std::exception&) {
            return; // for want of memory
        }
    }
}

} // namespace morvellacinto::platform
