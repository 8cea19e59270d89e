#include "support/TestCertificates.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <stdexcept>
#include <unistd.h>

namespace morvellacinto::testing {

namespace {

std::shared_ptr<EVP_PKEY> makeKey(KeyKind kind) {
    return {kind == KeyKind::p256 ? EVP_EC_gen("P-256") : EVP_RSA_gen(2048), &EVP_PKEY_free};
}

void addExtension(X509* certificate, int nid, const std::string& value) {
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
    if (extension == nullptr) {
        throw std::runtime_error("bad certificate extension " + value);
    }
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

// Signed by `issuer`, or by itself when that is null.
std::shared_ptr<X509> makeCertificate(EVP_PKEY* key, const char* commonName, long validSeconds,
                                      const X509* issuer, EVP_PKEY* issuerKey,
                                      const std::string& names) {
    std::shared_ptr<X509> certificate(X509_new(), &X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    unsigned serial = 0;
    RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), static_cast<long>(serial));
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -7200);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validSeconds);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME* const subject = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
    X509_set_issuer_name(certificate.get(),
                         issuer != nullptr ? X509_get_subject_name(issuer) : subject);
    if (issuer == nullptr) {
        addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    } else {
        addExtension(certificate.get(), NID_subject_alt_name, names);
    }
    X509_sign(certificate.get(), issuerKey, EVP_sha256());
    return certificate;
}

} // namespace

TestAuthority::TestAuthority(KeyKind kind)
    : kind_(kind), key_(makeKey(kind)),
      certificate_(
          makeCertificate(key_.get(), "Throw-away authority", 3600, nullptr, key_.get(), {})) {
    std::string name = (std::filesystem::temp_directory_path() / "authority-XXXXXX").string();
    std::FILE* const file = fdopen(mkstemp(name.data()), "w");
    PEM_write_X509(file, certificate_.get());
    std::fclose(file);
    file_ = name;
}

TestAuthority::~TestAuthority() { std::filesystem::remove(file_); }

std::shared_ptr<SSL_CTX> TestAuthority::serverContext(const std::string& names,
                                                      long validSeconds) const {
    const std::shared_ptr<EVP_PKEY> key = makeKey(kind_);
    const std::shared_ptr<X509> certificate = makeCertificate(
        key.get(), "Throw-away server", validSeconds, certificate_.get(), key_.get(), names);
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    SSL_CTX_use_certificate(context.get(), certificate.get());
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    return context;
}

} // namespace morvellacinto::testing
