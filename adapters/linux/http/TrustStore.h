#pragma once

#include <openssl/x509.h>

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

    /// Owned by this object. Read at the first call, and again once the system's file has changed.
    [[nodiscard]] X509_STORE* store();

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
