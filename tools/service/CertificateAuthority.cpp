// SPDX-License-Identifier: MIT
#include "CertificateAuthority.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace morvellacinto::service {

namespace {

constexpr std::chrono::seconds clockTolerance = std::chrono::hours(24);
constexpr std::chrono::seconds lifetime = std::chrono::hours(24 * 30);

void require(bool isDone, std::string_view what) {
    if (!isDone) {
        const char* reason = ERR_reason_error_string(ERR_get_error());
        throw std::runtime_error("OpenSSL cannot " + std::string(what) + ": " +
                                 (reason != nullptr ? reason : "no reason given"));
    }
}

std::shared_ptr<EVP_PKEY> makeKey(KeyKind kind) {
    std::shared_ptr<EVP_PKEY> key(kind == KeyKind::p256 ? EVP_EC_gen("P-256") : EVP_RSA_gen(2048),
                                  &EVP_PKEY_free);
    require(key != nullptr, "make a key");
    return key;
}

void setRandomSerial(X509& certificate) {
    std::uint32_t serial = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1,
            "give random bytes");
    require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(&certificate), serial) == 1,
            "set a serial number");
}

void addExtension(X509& certificate, const X509& issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, const_cast<X509*>(&issuer), &certificate, nullptr, nullptr, 0);
    const std::shared_ptr<X509_EXTENSION> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()), &X509_EXTENSION_free);
    require(extension != nullptr && X509_add_ext(&certificate, extension.get(), -1) == 1,
            "add the extension " + value);
}

// Valid and named, but neither extended nor signed.
std::shared_ptr<X509> makeCertificate(EVP_PKEY& key, const char* commonName) {
    std::shared_ptr<X509> certificate(X509_new(), &X509_free);
    require(certificate != nullptr && X509_set_version(certificate.get(), X509_VERSION_3) == 1,
            "make a certificate");
    setRandomSerial(*certificate);
    require(X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -clockTolerance.count()) &&
                X509_gmtime_adj(X509_getm_notAfter(certificate.get()), lifetime.count()),
            "set a validity");
    require(X509_set_pubkey(certificate.get(), &key) == 1, "set a public key");
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                                       reinterpret_cast<const unsigned char*>(commonName), -1, -1,
                                       0) == 1,
            "set a name");
    return certificate;
}

void sign(X509& certificate, const X509& issuer, EVP_PKEY& issuerKey) {
    require(X509_set_issuer_name(&certificate, X509_get_subject_name(&issuer)) == 1,
            "set an issuer");
    require(X509_sign(&certificate, &issuerKey, EVP_sha256()) > 0, "sign a certificate");
}

} // namespace

CertificateAuthority::CertificateAuthority(KeyKind kind) : kind_(kind) {
    self_.key = makeKey(kind);
    self_.certificate = makeCertificate(*self_.key, "Throw-away authority");
    X509& certificate = *self_.certificate;
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
    sign(certificate, certificate, *self_.key);
}

std::string CertificateAuthority::pem() const {
    const std::shared_ptr<BIO> memory(BIO_new(BIO_s_mem()), &BIO_free);
    require(memory != nullptr && PEM_write_bio_X509(memory.get(), self_.certificate.get()) == 1,
            "write a certificate");
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<std::size_t>(length)};
}

Identity CertificateAuthority::issue(const std::string& names) const {
    Identity identity{nullptr, makeKey(kind_)};
    identity.certificate = makeCertificate(*identity.key, "Throw-away server");
    X509& certificate = *identity.certificate;
    addExtension(certificate, *self_.certificate, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, *self_.certificate, NID_ext_key_usage, "serverAuth");
    addExtension(certificate, *self_.certificate, NID_authority_key_identifier, "keyid:always");
    addExtension(certificate, *self_.certificate, NID_subject_alt_name, names);
    sign(certificate, *self_.certificate, *self_.key);
    return identity;
}

} // namespace morvellacinto::service
