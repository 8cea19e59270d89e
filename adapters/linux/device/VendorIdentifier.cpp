#include "VendorIdentifier.h"

#include "basics/RandomUuid.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <openssl/evp.h>
#include <systemd/sd-id128.h>
#include <utility>

namespace morvellacinto::native {

namespace {

constexpr std::string_view keptName = "vendorIdentifier";

// A number of the vendor's own, so that vendors cannot compare their users.
std::optional<Uuid> numberOf(std::string_view vendor) {
    const std::string text = "se.kovra.vendor " + std::string(vendor);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    if (EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1) {
        return std::nullopt;
    }
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
    : kept_(std::move(kept)), identity_(identity) {}

Uuid VendorIdentifier::of(std::string_view vendor) const {
    const auto number = numberOf(vendor);
    if (const auto identity = number ? identity_(*number) : std::nullopt) {
        return *identity;
    }
    const auto stored = [this] {
        const auto text = kept_.read(keptName);
        return text ? Uuid::parse(*text) : std::nullopt;
    };
    // Reading and writing may tell the host of a damaged store: not under the lock.
    if (const auto known = stored()) {
        return *known;
    }
    Uuid made = randomUuid();
    {
        const std::lock_guard lock(mutex_);
        if (!random_) {
            random_ = made;
        }
        made = *random_;
    }
    kept_.write(keptName, made.text());
    return stored().value_or(made); // that of a process which was faster
}

} // namespace morvellacinto::native
