#pragma once

#include <openssl/ssl.h>

#include <filesystem>
#include <memory>
#include <vector>

namespace morvellacinto::native {

/// The certificates that servers are judged by: the system's and a host's own. Parsing the system's
/// takes some 20 ms, so that it is done once for all connections.
class TrustStore {
public:
    /// Throws std::runtime_error naming a file of `anchors` that cannot be read or holds no
    /// certificate in PEM.
    explicit TrustStore(const std::vector<std::filesystem::path>& anchors);

    /// Makes connections of `context` judge servers by these certificates. Reads the system's at
    /// the first call, and again once their file has changed.
    void applyTo(SSL_CTX* context);

private:
    struct Free {
        void operator()(X509* certificate) const noexcept { X509_free(certificate); }
        void operator()(X509_STORE* store) const noexcept { X509_STORE_free(store); }
    };

    void load();

    std::vector<std::unique_ptr<X509, Free>> anchors_;
    std::unique_ptr<X509_STORE, Free> store_;
    std::filesystem::file_time_type systemFileTime_;
};

} // namespace morvellacinto::native
