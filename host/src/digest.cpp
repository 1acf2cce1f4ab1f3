// Digests for the web client through OpenSSL's EVP layer (SHA-NI where the processor has it).
// Each algorithm is fetched once per process: fetching costs more than hashing a short text,
// and request signing hashes many short texts.
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <cstring>
#include <memory>

#include "object.h"
#include "ox/status.h"
#include "webclient_internal.h"

namespace {

template <class T, void (*Free)(T*)>
struct FreeWith {
    void operator()(T* p) const { Free(p); }
};
using MacContext = std::unique_ptr<EVP_MAC_CTX, FreeWith<EVP_MAC_CTX, EVP_MAC_CTX_free>>;

const EVP_MD* sha256Algorithm() {
    static EVP_MD* const md = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return md;
}

const EVP_MD* md5Algorithm() {
    static EVP_MD* const md = EVP_MD_fetch(nullptr, "MD5", nullptr);
    return md;
}

EVP_MAC* hmacAlgorithm() {
    static EVP_MAC* const mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    return mac;
}

// OpenSSL wants a pointer even for no bytes.
const void* bytesOrEmpty(const void* bytes) { return bytes ? bytes : ""; }

OXStatus digestOnce(const EVP_MD* md, const void* bytes, OXMemSize len, uint8_t* out, size_t outLen) {
    if (!out || (!bytes && len != 0)) return OX_INVALID_ARGUMENT;
    if (!md) return OX_NOT_SUPPORTED;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLen = 0;
    if (EVP_Digest(bytesOrEmpty(bytes), len, digest, &digestLen, md, nullptr) != 1 || digestLen != outLen)
        return OX_FAILED;
    std::memcpy(out, digest, outLen);
    return OX_OK;
}

// ---- streaming SHA-256

constexpr uint32_t kSha256Oven = OX_OVEN('s', 'h', 'a', '2');

struct Sha256Context {
    OXSha256_S rec;  // first, so the record pointer is the context pointer
    OX_POOL_S* pool;
    EVP_MD_CTX* md;
};

Sha256Context* contextOf(OXSha256_S* rec) {
    return rec && rec->generic.oven == kSha256Oven ? reinterpret_cast<Sha256Context*>(rec) : nullptr;
}

OXStatus sha256Update(OXSha256_S* rec, const void* bytes, OXMemSize len) {
    Sha256Context* ctx = contextOf(rec);
    if (!ctx || (!bytes && len != 0)) return OX_INVALID_ARGUMENT;
    return EVP_DigestUpdate(ctx->md, bytesOrEmpty(bytes), len) == 1 ? OX_OK : OX_FAILED;
}

OXStatus sha256Final(OXSha256_S* rec, uint8_t digest[OX_SHA256_LEN]) {
    Sha256Context* ctx = contextOf(rec);
    if (!ctx || !digest) return OX_INVALID_ARGUMENT;
    unsigned char result[EVP_MAX_MD_SIZE];
    unsigned int resultLen = 0;
    if (EVP_DigestFinal_ex(ctx->md, result, &resultLen) != 1 ||
        EVP_DigestInit_ex2(ctx->md, sha256Algorithm(), nullptr) != 1 || resultLen != OX_SHA256_LEN)
        return OX_FAILED;
    std::memcpy(digest, result, OX_SHA256_LEN);
    return OX_OK;
}

OXStatus sha256Destroy(void* self) {
    Sha256Context* ctx = contextOf(static_cast<OXSha256_S*>(self));
    if (!ctx) return OX_INVALID_ARGUMENT;
    EVP_MD_CTX_free(ctx->md);
    ctx->rec.generic.oven = 0;
    ctx->pool->memFree(ctx->pool, ctx);
    return OX_OK;
}

}  // namespace

OXStatus oxSha256(const void* bytes, OXMemSize len, uint8_t digest[OX_SHA256_LEN]) {
    return digestOnce(sha256Algorithm(), bytes, len, digest, OX_SHA256_LEN);
}

OXStatus oxMd5(const void* bytes, OXMemSize len, uint8_t digest[OX_MD5_LEN]) {
    return digestOnce(md5Algorithm(), bytes, len, digest, OX_MD5_LEN);
}

// One HMAC context per thread, its digest chosen once: re-initialising it with each key is
// far cheaper than making and configuring a context per signature step.
EVP_MAC_CTX* threadHmacContext() {
    thread_local MacContext ctx = [] {
        MacContext made(hmacAlgorithm() ? EVP_MAC_CTX_new(hmacAlgorithm()) : nullptr);
        char digestName[] = "SHA256";
        const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digestName, 0),
                                     OSSL_PARAM_construct_end()};
        if (made && EVP_MAC_CTX_set_params(made.get(), params) != 1) made.reset();
        return made;
    }();
    return ctx.get();
}

OXStatus oxHmacSha256(const void* key, OXMemSize keyLen, const void* data, OXMemSize dataLen,
                      uint8_t mac[OX_SHA256_LEN]) {
    if (!mac || (!key && keyLen != 0) || (!data && dataLen != 0)) return OX_INVALID_ARGUMENT;
    if (!hmacAlgorithm()) return OX_NOT_SUPPORTED;
    EVP_MAC_CTX* ctx = threadHmacContext();
    if (!ctx) return OX_NO_MEMORY;
    unsigned char result[EVP_MAX_MD_SIZE];
    size_t resultLen = 0;
    if (EVP_MAC_init(ctx, static_cast<const unsigned char*>(bytesOrEmpty(key)), keyLen, nullptr) != 1 ||
        EVP_MAC_update(ctx, static_cast<const unsigned char*>(bytesOrEmpty(data)), dataLen) != 1 ||
        EVP_MAC_final(ctx, result, &resultLen, sizeof result) != 1 || resultLen != OX_SHA256_LEN)
        return OX_FAILED;
    std::memcpy(mac, result, OX_SHA256_LEN);
    return OX_OK;
}

OXStatus oxSha256Init(OX_POOL_S* pool, OXSha256_S** out) {
    if (!pool || !out) return OX_INVALID_ARGUMENT;
    if (!sha256Algorithm()) return OX_NOT_SUPPORTED;
    auto* ctx = static_cast<Sha256Context*>(pool->memAlloc(pool, sizeof(Sha256Context), OX_POOL_ZERO_FILL));
    if (!ctx) return OX_NO_MEMORY;
    ctx->md = EVP_MD_CTX_new();
    if (!ctx->md || EVP_DigestInit_ex2(ctx->md, sha256Algorithm(), nullptr) != 1) {
        EVP_MD_CTX_free(ctx->md);
        pool->memFree(pool, ctx);
        return OX_NO_MEMORY;
    }
    ctx->pool = pool;
    ox::initGeneric(ctx->rec.generic, kSha256Oven, "OXSha256", sha256Destroy);
    ctx->rec.update = sha256Update;
    ctx->rec.final = sha256Final;
    *out = &ctx->rec;
    return OX_OK;
}
