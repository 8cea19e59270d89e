#pragma once

#include "KeptValues.h"

#include "morvellacinto/foundation/Uuid.h"

#include <optional>
#include <string_view>

namespace morvellacinto::native {

/// What a bundle identifier tells of its vendor: all but its last component.
[[nodiscard]] std::string_view vendorOf(std::string_view bundleIdentifier);

/// The identifier that all applications of one vendor see on this machine. It is derived from the
/// machine's identity in a way that does not give that away; on a machine without one it is random
/// and kept, and each application has its own.
class VendorIdentifier {
public:
    /// Gives the part of the machine's identity that belongs to the application of this number.
    using MachineIdentity = std::optional<Uuid> (*)(const Uuid& application);
    [[nodiscard]] static std::optional<Uuid> ofThisMachine(const Uuid& application);

    explicit VendorIdentifier(KeptValues kept, MachineIdentity identity = ofThisMachine);

    /// The same on every call for the same vendor.
    [[nodiscard]] Uuid of(std::string_view vendor) const;

private:
    mutable KeptUuid kept_;
    const MachineIdentity identity_;
};

} // namespace morvellacinto::native
