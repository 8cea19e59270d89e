#include "VendorIdentifier.h"

#include "Sha256.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <systemd/sd-id128.h>
#include <utility>

namespace morvellacinto::native {

namespace {

// A number of the vendor's own, so that vendors cannot compare their users.
Uuid numberOf(std::string_view vendor) {
    const auto digest = sha256("se.kovra.vendor " + std::string(vendor));
    Uuid::Bytes bytes{};
    std::copy_n(digest.begin(), bytes.size(), bytes.begin());
    return Uuid(bytes);
}

} // namespace

std::string_view vendorOf(std::string_view bundleIdentifier) {
    return bundleIdentifier.substr(0, bundleIdentifier.rfind('.'));
}

std::optional<Uuid> VendorIdentifier::ofThisMachine(const Uuid& application) {
    sd_id128_t key{};
    sd_id128_t identity{};
    std::memcpy(key.bytes, application.bytes().data(), sizeof key.bytes);
    if (sd_id128_get_machine_app_specific(key, &identity) < 0) {
        return std::nullopt;
    }
    Uuid::Bytes bytes;
    std::memcpy(bytes.data(), identity.bytes, bytes.size());
    return Uuid(bytes);
}

VendorIdentifier::VendorIdentifier(KeptValues kept, MachineIdentity identity)
    : kept_(std::move(kept), "vendorIdentifier"), identity_(identity) {}

Uuid VendorIdentifier::of(std::string_view vendor) const {
    const auto identity = identity_(numberOf(vendor));
    return identity ? *identity : kept_.get();
}

} // namespace morvellacinto::native
