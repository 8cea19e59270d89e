// SPDX-License-Identifier: MIT
#pragma once

#include "service/CertificateAuthority.h"
#include "support/TemporaryDirectory.h"

namespace morvellacinto::testing {

using service::KeyKind;

/// A throw-away certificate authority whose certificate lies in a file of its own.
class TestAuthority {
public:
    explicit TestAuthority(KeyKind kind = KeyKind::p256) : authority_(kind) {
        directory_.write("authority.pem", authority_.pem());
    }

    [[nodiscard]] const std::filesystem::path& file() const { return file_; }
    [[nodiscard]] std::string pem() const { return authority_.pem(); }

    /// A server's TLS context for the names, such as "IP:127.0.0.1,DNS:localhost".
    [[nodiscard]] std::shared_ptr<SSL_CTX> serverContext(const std::string& names) const {
        const service::Identity identity = authority_.issue(names);
        std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
        SSL_CTX_use_certificate(context.get(), identity.certificate.get());
        SSL_CTX_use_PrivateKey(context.get(), identity.key.get());
        return context;
    }

    /// What the file is called in a hashed directory.
    [[nodiscard]] std::string hashedName() const {
        const service::Identity any = authority_.issue("DNS:any");
        char name[16];
        std::snprintf(name, sizeof name, "%08lx.0", X509_issuer_name_hash(any.certificate.get()));
        return name;
    }

private:
    const TemporaryDirectory directory_;
    const std::filesystem::path file_ = directory_.path() / "authority.pem";
    const service::CertificateAuthority authority_;
};

} // namespace morvellacinto::testing
