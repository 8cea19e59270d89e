#pragma once

#include "morvellacinto/foundation/Export.h"

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

/// A class that a node mapping names, and that nothing has made known.
struct ClassUnknown {
    std::string name;
};

/// What the library tells of what it did, or did not do, beside its results. No member holds a
/// coordinate, an identifier, the token or the value of a JSON member.
using Diagnostic = std::variant<ValueSkipped, ImportEnded, ClassUnknown>;

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

/// Hands a record to the installed platform's diagnostics, if there is a platform and it has them.
/// Never throws; a record for which memory has run out is lost.
MORVELLACINTO_EXPORT void tellDiagnostics(const Diagnostic& diagnostic) noexcept;

} // namespace morvellacinto::platform
