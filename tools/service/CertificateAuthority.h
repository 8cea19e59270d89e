// SPDX-License-Identifier: MIT
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace morvellacinto::service {

/// A certificate and its private key.
struct Identity {
    std::shared_ptr<X509> certificate;
    std::shared_ptr<EVP_PKEY> key;
};

enum class KeyKind { p256, rsa2048 };

/// A certificate authority that lives as long as this object: its key is never written anywhere.
/// Throws std::runtime_error when OpenSSL refuses.
class CertificateAuthority {
public:
    /// `kind` is that of its own key and of its servers'.
    explicit CertificateAuthority(KeyKind kind = KeyKind::p256);

    /// The authority's own certificate, to be trusted by clients.
    [[nodiscard]] std::string pem() const;

    /// A server's identity, good for 30 days. `names` as OpenSSL writes alternative names, such as
    /// "IP:127.0.0.1,DNS:localhost".
    [[nodiscard]] Identity issue(const std::string& names) const;

private:
    KeyKind kind_;
    Identity self_;
};

} // namespace morvellacinto::service
