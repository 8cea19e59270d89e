// SPDX-License-Identifier: MIT
#include "Trust.h"

#include "basics/SystemFiles.h"

#include <glob.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace morvellacinto::native {

namespace {

using std::filesystem::path;

constexpr std::size_t maximumBytes = std::size_t(4) << 20U; // a bundle has a quarter of one

// As OpenSSL looks for them, eight digits of a hash and a number.
bool isHashed(const path& directory) {
    constexpr const char* name =
        "[0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f].0";
    glob_t found{};
    const bool isFound =
        !directory.empty() &&
        // NOLINTNEXTLINE(concurrency-mt-unsafe): that is of users' names, which are not asked for
        glob((directory / name).c_str(), GLOB_NOSORT, nullptr, &found) == 0;
    globfree(&found);
    return isFound;
}

// Throws std::runtime_error unless it is a PEM file that holds a certificate.
void requireCertificate(const path& file) {
    const auto text = readSmallFile(file, maximumBytes);
    if (!text || text->find("-----BEGIN CERTIFICATE-----") == std::string::npos) {
        throw std::runtime_error("The trust anchor " + file.string() +
                                 " cannot be read, or holds no certificate in PEM.");
    }
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
    std::for_each(anchors_.begin(), anchors_.end(), &requireCertificate);
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
    const auto set = [transfer](CURLoption option, auto value) {
        requireMemory(curl_easy_setopt(transfer, option, value) == CURLE_OK);
    };
    // libcurl would parse files anew for each connection. It reuses one where the names are equal.
    set(CURLOPT_CAPATH, name_.c_str());
    set(CURLOPT_CAINFO, nullptr);
    set(CURLOPT_SSL_CTX_DATA, this);
    const auto useStore = [](CURL*, void* context, void* self) {
        SSL_CTX_set1_cert_store(static_cast<SSL_CTX*>(context),
                                static_cast<const Trust*>(self)->store_.get());
        return CURLE_OK;
    };
    set(CURLOPT_SSL_CTX_FUNCTION, +useStore);
}

void Trust::load() {
    decltype(store_) store(X509_STORE_new());
    requireMemory(store != nullptr);
    // As libcurl has it: what is trusted need not be a root.
    X509_STORE_set_flags(store.get(), X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
    const auto add = [&store](const path& file) {
        ERR_clear_error();
        requireMemory(X509_STORE_load_file(store.get(), file.c_str()) == 1 ||
                      ERR_GET_REASON(ERR_peek_error()) != ERR_R_MALLOC_FAILURE);
    };
    std::for_each(anchors_.begin(), anchors_.end(), add);
    const auto& directories = system_.directories;
    const auto hashed = std::find_if(directories.begin(), directories.end(), &isHashed);
    if (hashed == directories.end()) {
        add(system_.bundle);
    } else {
        requireMemory(X509_STORE_load_path(store.get(), hashed->c_str()) == 1);
    }
    store_.swap(store);
    name_ = name_.size() < 2000 ? name_ + "/." : "/.";
}

} // namespace morvellacinto::native
