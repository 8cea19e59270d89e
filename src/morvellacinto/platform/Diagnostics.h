#pragma once

#include "morvellacinto/foundation/Export.h"
#include "morvellacinto/foundation/KRError.h"

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
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

/// An upload's answer that is no object: not kept, and the completion is not called.
struct AnswerDropped {
    int status = 0;       ///< of HTTP; 0 when the platform told none
    std::size_t size = 0; ///< of the body in bytes, as uncompressed
    std::string found;    ///< such as "an array"
};

/// A cached answer that is no object, where it should have been served: the completion is not
/// called.
struct CachedAnswerDropped {
    std::string found;
};

/// A callback that waited for a location under `key` and was replaced by a later one.
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

/// What the library tells of what it did, or did not do, beside its results. No member holds a
/// coordinate, an identifier, the token or the value of a JSON member, as far as the library makes
/// its text.
using Diagnostic =
    std::variant<ValueSkipped, ImportEnded, AnswerDropped, CachedAnswerDropped, CallSuperseded,
                 ErrorUnheard, BaseUrlRefused, RequestNotMade, LineLogged>;

/// The record as one English sentence for a developer.
[[nodiscard]] MORVELLACINTO_EXPORT std::string sentenceOf(const Diagnostic& diagnostic);

/// Receives the records. An optional service: a platform without it loses nothing.
class MORVELLACINTO_EXPORT Diagnostics {
public:
    Diagnostics(const Diagnostics&) = delete;
    Diagnostics& operator=(const Diagnostics&) = delete;
    virtual ~Diagnostics();

    /// Any thread, also on several at once, with no lock held.
    virtual void tell(const Diagnostic& diagnostic) noexcept = 0;

protected:
    Diagnostics() = default;
};

namespace detail {
/// Whether the installed platform has diagnostics.
MORVELLACINTO_EXPORT extern std::atomic<bool> hasDiagnostics;
} // namespace detail

/// Hands a record to the installed platform's diagnostics, if there is a platform and it has them.
/// Never throws; a record for which memory has run out is lost.
MORVELLACINTO_EXPORT void tellDiagnostics(const Diagnostic& diagnostic) noexcept;

/// The same for the record that `make` gives. With nobody to tell it costs one load, and `make` is
/// not called.
template <std::invocable Make>
void tellDiagnostics(const Make& make) noexcept {
    if (!detail::hasDiagnostics.load(std::memory_order_relaxed)) {
        return;
    }
    try {
        tellDiagnostics(Diagnostic(make()));
    } catch (const std::exception&) {
        return; // for want of memory
    }
}

} // namespace morvellacinto::platform
