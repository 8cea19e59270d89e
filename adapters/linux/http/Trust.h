#pragma once

#include <curl/curl.h>

#include <filesystem>
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
    /// no certificate; damaged ones are noticed when a server is judged, and none is trusted then.
    Trust(std::vector<std::filesystem::path> anchors, SystemRoots system);

    /// Makes a transfer judge servers by what the files hold now; an anchor that has become
    /// unreadable is left out. After a change libcurl reuses no connection and no TLS session that
    /// was made before: it does that only where all names and texts set here are the same.
    void applyTo(CURL* transfer);

private:
    void load();

    const std::vector<std::filesystem::path> anchors_;
    const SystemRoots system_;
    std::vector<std::filesystem::path> watched_;
    std::vector<std::filesystem::file_time_type> changed_; ///< when, of each that is watched
    std::string respelling_; ///< "/./." put into paths: longer after each change
    std::string directory_;  ///< empty: none
    std::string bundle_;     ///< empty: none
    std::string texts_;
};

} // namespace morvellacinto::native
