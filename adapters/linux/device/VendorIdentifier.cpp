#include "VendorIdentifier.h"

#include "Sha256.h"

#include <algorithm>
#include <string>
#include <systemd/sd-id128.h>

namespace morvellacinto::native {

Uuid vendorNumberOf(std::string_view bundleIdentifier) {
    const auto vendor = bundleIdentifier.substr(0, bundleIdentifier.rfind('.'));
    const auto digest = sha256("se.kovra.vendor " + std::string(vendor));
    Uuid::Bytes bytes{};
    std::copy_n(digest.begin(), bytes.size(), bytes.begin());
    return Uuid(bytes);
}

std::optional<Uuid> vendorIdentifier(const Uuid& vendorNumber) {
    sd_id128_t key{};
    sd_id128_t identity{};
    std::copy_n(vendorNumber.bytes().begin(), sizeof key.bytes, key.bytes);
    if (sd_id128_get_machine_app_specific(key, &identity) < 0) {
        return std::nullopt;
    }
    Uuid::Bytes bytes;
    std::copy_n(identity.bytes, bytes.size(), bytes.begin());
    return Uuid(bytes);
}

} // namespace morvellacinto::native
