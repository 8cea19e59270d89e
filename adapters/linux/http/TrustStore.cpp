#include "TrustStore.h"

#include <curl/curl.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

namespace morvellacinto::native {

namespace {

const char* systemFile() {
    const char* file = curl_version_info(CURLVERSION_NOW)->cainfo;
    return file != nullptr ? file : X509_get_default_cert_file();
}

std::filesystem::file_time_type timeOfSystemFile() {
    std::error_code absent;
    return std::filesystem::last_write_time(systemFile(), absent);
}

int verify(X509_STORE_CTX* chain, void*) {
    const int result = X509_verify_cert(chain);
    if (result != 1) {
        // What is left in the queue, a bad signature for example, would hide from libcurl that
        // it was the verification that failed.
        ERR_clear_error();
    }
    return result;
}

} // namespace

TrustStore::TrustStore(const std::vector<std::filesystem::path>& anchors) {
    for (const std::filesystem::path& file : anchors) {
        const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new_file(file.c_str(), "r"),
                                                             &BIO_free);
        if (!text) {
            ERR_clear_error();
            throw std::runtime_error("The trust anchor " + file.string() + " cannot be read.");
        }
        const std::size_t before = anchors_.size();
        while (X509* certificate = PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr)) {
            anchors_.emplace_back(certificate);
        }
        const bool atEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
        ERR_clear_error();
        if (!atEnd || anchors_.size() == before) {
            throw std::runtime_error("The trust anchor " + file.string() +
                                     " holds no valid certificate in PEM.");
        }
    }
}

void TrustStore::applyTo(SSL_CTX* context) {
    const std::filesystem::file_time_type time = timeOfSystemFile();
    if (!store_ || time != systemFileTime_) {
        load();
        systemFileTime_ = time;
    }
    SSL_CTX_set1_cert_store(context, store_.get());
    SSL_CTX_set_cert_verify_callback(context, &verify, nullptr);
}

void TrustStore::load() {
    store_.reset(X509_STORE_new());
    if (!store_) {
        throw std::bad_alloc();
    }
    // As libcurl has it: an anchor need not be the end of a chain.
    X509_STORE_set_flags(store_.get(), X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
    X509_STORE_load_file(store_.get(), systemFile());
    for (const auto& anchor : anchors_) {
        X509_STORE_add_cert(store_.get(), anchor.get());
    }
    ERR_clear_error(); // without the system's file the anchors alone decide
}

} // namespace morvellacinto::native
