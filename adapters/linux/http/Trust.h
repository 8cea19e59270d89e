// SPDX-License-Identifier: MIT
#pragma once

#include "Libcurl.h"

#include <curl/curl.h>
#include <openssl/x509.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace morvellacinto::native {

/// Where the system's certificates are looked for.
struct SystemRoots {
    /// The first that holds a name like "5ed36f99.0" is used: OpenSSL finds the one certificate it
    /// needs there by its name.
    std::vector<std::filesystem::path> directories;
    /// Else all of them in one file, which takes some 30 ms to parse.
    std::filesystem::path bundle;

    [[nodiscard]] static SystemRoots usual();
};

/// The certificates that servers are judged by: the system's and a host's own.
class Trust {
public:
    /// `anchors` are PEM files. Throws std::runtime_error naming one that cannot be read or holds
    /// no certificate. None is trusted of one that turns out to be damaged.
    Trust(std::vector<std::filesystem::path> anchors, SystemRoots system);

    /// In a turn. Makes a transfer, which this outlives, judge servers by what the files hold now;
    /// an anchor that has become unreadable is left out. After a change libcurl reuses no
    /// connection and no TLS session that was made before.
    void applyTo(CURL* transfer);

private:
    void load();

    const std::vector<std::filesystem::path> anchors_;
    const SystemRoots system_;
    std::vector<std::filesystem::path> watched_;
    std::vector<std::filesystem::file_time_type> changed_; ///< when, of each that is watched
    std::unique_ptr<X509_STORE, InTurn<&X509_STORE_free>> store_;
    std::string name_; ///< of a folder without certificates: "/./.", longer after each change
};

} // namespace morvellacinto::native
