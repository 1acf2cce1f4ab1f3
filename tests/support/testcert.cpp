#include "testcert.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

namespace oxtest {

namespace {

template <class T, void (*F)(T*)>
using Holder = std::unique_ptr<T, decltype([](T* p) { F(p); })>;

std::string pemOf(int (*write)(BIO*, void*), void* object) {
    Holder<BIO, BIO_free_all> bio(BIO_new(BIO_s_mem()));
    if (!bio || write(bio.get(), object) != 1) return {};
    char* data = nullptr;
    long len = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<size_t>(len));
}

int writeCert(BIO* b, void* x) { return PEM_write_bio_X509(b, static_cast<X509*>(x)); }
int writeKey(BIO* b, void* k) {
    return PEM_write_bio_PrivateKey(b, static_cast<EVP_PKEY*>(k), nullptr, nullptr, 0, nullptr, nullptr);
}

bool addExtension(X509* cert, int nid, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
    Holder<X509_EXTENSION, X509_EXTENSION_free> ext(X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str()));
    return ext && X509_add_ext(cert, ext.get(), -1) == 1;
}

std::string altNames(const std::vector<std::string>& dns, const std::vector<std::string>& ips) {
    std::string names;
    for (const auto& n : dns) names += (names.empty() ? "DNS:" : ",DNS:") + n;
    for (const auto& a : ips) names += (names.empty() ? "IP:" : ",IP:") + a;
    return names;
}

std::vector<std::string>& filesToRemove() {
    static std::vector<std::string>* files = [] {
        auto* v = new std::vector<std::string>;
        std::atexit([] {
            for (const auto& f : filesToRemove()) ::unlink(f.c_str());
        });
        return v;
    }();
    return *files;
}

std::string writeTempPem(const std::string& pem) {
    char path[] = "/tmp/oxtest-ca-XXXXXX";
    int fd = ::mkstemp(path);
    if (fd < 0) return {};
    bool ok = ::write(fd, pem.data(), pem.size()) == static_cast<ssize_t>(pem.size());
    ::close(fd);
    if (!ok) return {};
    static std::mutex m;
    std::lock_guard lock(m);
    filesToRemove().push_back(path);
    return path;
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
    const bool extended = addExtension(cert.get(), NID_basic_constraints, "critical,CA:TRUE") &&
                          addExtension(cert.get(), NID_subject_alt_name, altNames(dnsNames, ipAddresses));
    if (!extended || X509_sign(cert.get(), key.get(), EVP_sha256()) == 0) {
        id.error = "could not sign the certificate";
        return id;
    }
    id.certPem = pemOf(writeCert, cert.get());
    id.keyPem = pemOf(writeKey, key.get());
    id.caFile = writeTempPem(id.certPem);
    if (id.certPem.empty() || id.keyPem.empty() || id.caFile.empty()) id.error = "could not write the identity";
    return id;
}

}  // namespace oxtest
