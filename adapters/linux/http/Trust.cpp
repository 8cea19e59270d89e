#include "Trust.h"

#include "Libcurl.h"
#include "basics/SystemFiles.h"

#include <dirent.h>
#include <openssl/x509.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace morvellacinto::native {

namespace {

using std::filesystem::path;

constexpr std::size_t maximumBytes = std::size_t(4) << 20U; // a bundle has a quarter of one

// Not by a directory_iterator, which ends the process when memory runs out.
bool isHashed(const path& directory) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), &closedir);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else has this stream
    while (const dirent* const entry = entries ? readdir(entries.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name.size() == 10 && name.ends_with(".0") &&
            name.find_first_not_of("0123456789abcdef") == 8) {
            return true;
        }
    }
    return false;
}

// A PEM file. Throws std::runtime_error when it holds no certificate.
std::string certificatesIn(const path& file) {
    const std::string text = readSmallFile(file, maximumBytes).value_or("");
    if (text.find("-----BEGIN CERTIFICATE-----") == std::string::npos) {
        throw std::runtime_error("The trust anchor " + file.string() +
                                 " cannot be read, or holds no certificate in PEM.");
    }
    return text + '\n';
}

} // namespace

SystemRoots SystemRoots::usual() {
    const curl_version_info_data& libcurl = *curl_version_info(CURLVERSION_NOW);
    return {{libcurl.capath != nullptr ? libcurl.capath : "", X509_get_default_cert_dir(),
             "/etc/ssl/certs"},
            libcurl.cainfo != nullptr ? libcurl.cainfo : X509_get_default_cert_file()};
}

Trust::Trust(std::vector<path> anchors, SystemRoots system)
    : anchors_(std::move(anchors)), system_(std::move(system)), watched_(system_.directories) {
    watched_.push_back(system_.bundle);
    watched_.insert(watched_.end(), anchors_.begin(), anchors_.end());
    std::for_each(anchors_.begin(), anchors_.end(), &certificatesIn);
}

void Trust::applyTo(CURL* transfer) {
    std::vector<std::filesystem::file_time_type> changed;
    for (const path& file : watched_) {
        std::error_code absent;
        changed.push_back(std::filesystem::last_write_time(file, absent));
    }
    if (changed != changed_) {
        load();
        changed_ = std::move(changed);
    }
    curl_blob texts{texts_.data(), texts_.size(), CURL_BLOB_COPY};
    const auto set = [transfer](CURLoption option, auto* value, bool isEmpty) {
        requireMemory(curl_easy_setopt(transfer, option, isEmpty ? nullptr : value) == CURLE_OK);
    };
    set(CURLOPT_CAPATH, directory_.c_str(), directory_.empty());
    set(CURLOPT_CAINFO, bundle_.c_str(), bundle_.empty());
    set(CURLOPT_CAINFO_BLOB, &texts, texts_.empty());
}

void Trust::load() {
    const auto add = [this](const path& file) {
        try {
            texts_ += certificatesIn(file);
        } catch (const std::runtime_error&) {
            // The others decide.
        }
    };
    respelling_ = respelling_.size() < 2000 ? respelling_ + "/." : "/.";
    texts_.clear();
    std::for_each(anchors_.begin(), anchors_.end(), add);
    const auto& directories = system_.directories;
    const auto hashed = std::find_if(directories.begin(), directories.end(), &isHashed);
    directory_ = hashed != directories.end() ? hashed->string() + respelling_ : "";
    bundle_.clear();
    if (directory_.empty() && texts_.empty()) {
        const path& bundle = system_.bundle;
        bundle_ = bundle.parent_path().string() + respelling_ + "/" + bundle.filename().string();
    } else if (directory_.empty()) {
        add(system_.bundle); // libcurl takes texts or a file
    }
}

} // namespace morvellacinto::native
