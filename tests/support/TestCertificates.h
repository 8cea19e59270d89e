#pragma once

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <filesystem>
#include <memory>
#include <string>

namespace morvellacinto::testing {

enum class KeyKind { p256, rsa2048 };

/// A throw-away certificate authority, made in memory; its certificate lies in a file of its own
/// for as long as the object lives.
class TestAuthority {
public:
    /// `kind` is that of its own key and of its servers'.
    explicit TestAuthority(KeyKind kind = KeyKind::p256);
    TestAuthority(const TestAuthority&) = delete;
    TestAuthority& operator=(const TestAuthority&) = delete;
    ~TestAuthority();

    [[nodiscard]] const std::filesystem::path& file() const { return file_; }

    /// A server's TLS context for the names, such as "IP:127.0.0.1,DNS:localhost".
    [[nodiscard]] std::shared_ptr<SSL_CTX> serverContext(const std::string& names,
                                                         long validSeconds = 3600) const;

private:
    KeyKind kind_;
    std::shared_ptr<EVP_PKEY> key_;
    std::shared_ptr<X509> certificate_;
    std::filesystem::path file_;
};

} // namespace morvellacinto::testing
