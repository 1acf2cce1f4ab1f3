#include "testcert.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <mutex>

namespace oxtest {

namespace {

template <class T, void (*F)(T*)>
using Holder = std::unique_ptr<T, decltype([](T* p) { F(p); })>;

template <class Write>
std::string pemOf(Write write) {
    Holder<BIO, BIO_free_all> bio(BIO_new(BIO_s_mem()));
    if (!bio || write(bio.get()) != 1) return {};
    char* data = nullptr;
    const long len = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<size_t>(len));
}

bool addExtension(X509* cert, int nid, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
    Holder<X509_EXTENSION, X509_EXTENSION_free> ext(X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str()));
    return ext && X509_add_ext(cert, ext.get(), -1) == 1;
}

// Written to a temporary file that is removed when the process exits.
std::string writeTempPem(const std::string& pem) {
    static std::mutex m;
    static auto* files = new std::vector<std::string>;  // still read by the exit handler
    char path[] = "/tmp/oxtest-ca-XXXXXX";
    const int fd = ::mkstemp(path);
    if (fd < 0) return {};
    const bool ok = ::write(fd, pem.data(), pem.size()) == static_cast<ssize_t>(pem.size());
    ::close(fd);
    std::lock_guard lock(m);
    if (files->empty()) std::atexit([] {
            for (const auto& f : *files) ::unlink(f.c_str());
        });
    files->push_back(path);
    return ok ? path : std::string();
}

}  // namespace

TestIdentity makeTestIdentity(const std::vector<std::string>& dnsNames, const std::vector<std::string>& ipAddresses) {
    TestIdentity id;
    Holder<EVP_PKEY, EVP_PKEY_free> key(EVP_EC_gen("P-256"));
    Holder<X509, X509_free> cert(X509_new());
    if (!key || !cert) {
        id.error = "could not make a key";
        return id;
    }
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), static_cast<long>(std::rand() & 0x7fffffff));
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 7 * 24 * 3600);
    X509_set_pubkey(cert.get(), key.get());
    X509_NAME* name = X509_get_subject_name(cert.get());
    const std::string cn = dnsNames.empty() ? "oxtest" : dnsNames.front();
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(cn.c_str()), -1, -1, 0);
    X509_set_issuer_name(cert.get(), name);
    std::string altNames;
    for (const auto& n : dnsNames) altNames += ",DNS:" + n;
    for (const auto& a : ipAddresses) altNames += ",IP:" + a;
    if (!addExtension(cert.get(), NID_basic_constraints, "critical,CA:TRUE") ||
        !addExtension(cert.get(), NID_subject_alt_name, altNames.erase(0, 1)) ||
        X509_sign(cert.get(), key.get(), EVP_sha256()) == 0) {
        id.error = "could not sign the certificate";
        return id;
    }
    id.certPem = pemOf([&](BIO* b) { return PEM_write_bio_X509(b, cert.get()); });
    id.keyPem = pemOf([&](BIO* b) {
        return PEM_write_bio_PrivateKey(b, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    id.caFile = writeTempPem(id.certPem);
    if (id.certPem.empty() || id.keyPem.empty() || id.caFile.empty()) id.error = "could not write the identity";
    return id;
}

}  // namespace oxtest
