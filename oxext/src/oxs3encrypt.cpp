// Server-side encryption: the connection's settings, the choice between a call's values and
// those settings, and the SSE-KMS and SSE-C request headers.
#include "oxs3encrypt.h"

#include <string_view>
#include <utility>

#include "ox/status.h"
#include "ox/webclient.h"
#include "oxs3instance.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3sign.h"
#include "oxs3text.h"

namespace s3 {
namespace {

struct KeyHeaderNames {
    std::string_view encryptionHeader;
    std::string_view keyIdHeader;
    std::string_view keyContextHeader;
    std::string_view keyHeader;
    std::string_view keyAlgorithmHeader;
    std::string_view keyMD5Header;
};

constexpr KeyHeaderNames keyHeaderNames{
    "x-amz-server-side-encryption",
    "x-amz-server-side-encryption-aws-kms-key-id",
    "x-amz-server-side-encryption-context",
    "x-amz-server-side-encryption-customer-key",
    "x-amz-server-side-encryption-customer-algorithm",
    "x-amz-server-side-encryption-customer-key-md5",
};

// Only the SSE-C rows are read: a copy source is never named by a KMS key.
constexpr KeyHeaderNames copySourceKeyHeaderNames{
    "x-amz-copy-source-server-side-encryption",
    "x-amz-server-side-encryption-aws-kms-key-id",
    "x-amz-server-side-encryption-context",
    "x-amz-copy-source-server-side-encryption-customer-key",
    "x-amz-copy-source-server-side-encryption-customer-algorithm",
    "x-amz-copy-source-server-side-encryption-customer-key-md5",
};

constexpr std::string_view kKmsEncryption = "aws:kms";
constexpr std::string_view kDefaultAlgorithm = "AES256";
constexpr char32_t kHexDigits[] = U"0123456789abcdef";

// ---- settings

template <class T>
void replace(T*& field, T* value) {
    if (T* old = std::exchange(field, value)) reinterpret_cast<OXInstance*>(old)->destroy(old);
}

void clearKms(OXS3Connection connection) {
    replace(connection->kmsKeyId, static_cast<OXU8String*>(nullptr));
    replace(connection->kmsKeyContext, static_cast<OXU8String*>(nullptr));
}

void clearCustomerKey(OXS3Connection connection) {
    replace(connection->sseKey, static_cast<OXInstance*>(nullptr));
    replace(connection->sseKeyAlgorithm, static_cast<OXU8String*>(nullptr));
}

OXStatus copyText(OXS3Connection connection, std::string_view text, Owned<OXU8String>& out) {
    OXStringExt_S* strings = connection->oxs3->oxstring;
    return strings->createU8(strings, connection->pool, text.data(), text.size(), OX_STR_COPY, out.out());
}

OXStatus setKms(OXS3Connection connection, UTF8CStr kmsKeyId, UTF8CStr kmsKeyContext) {
    Owned<OXU8String> id, context;
    OXStatus st = copyText(connection, kmsKeyId, id);
    if (st == OX_OK && kmsKeyContext) st = copyText(connection, kmsKeyContext, context);
    if (st != OX_OK) return st;
    clearCustomerKey(connection);
    replace(connection->kmsKeyId, id.release());
    replace(connection->kmsKeyContext, context.release());
    return OX_OK;
}

constexpr int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// High digit first, two digits a byte. An odd final digit makes no whole byte, so the text is
// refused as a whole rather than quietly shortened.
OXStatus decodeHex(std::string_view text, uint8_t* out) {
    if (text.size() % 2 != 0) return OX_FAILED;
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = hexValue(text[i]);
        const int low = hexValue(text[i + 1]);
        if (high < 0 || low < 0) return OX_FAILED;
        out[i / 2] = static_cast<uint8_t>(high << 4 | low);
    }
    return OX_OK;
}

OXStatus setHexKey(OXS3Connection connection, std::string_view hex) {
    OXStringExt_S* strings = connection->oxs3->oxstring;
    Owned<OXData> key;
    // Any n/2 bytes will do as the first contents: every one is overwritten by the decoding.
    OXStatus st = strings->createData(strings, connection->pool, hex.data(), hex.size() / 2, key.out());
    if (st == OX_OK) st = decodeHex(hex, key->bytes);
    Owned<OXU8String> algorithm;
    if (st == OX_OK) st = copyText(connection, kDefaultAlgorithm, algorithm);
    if (st != OX_OK) return st;
    clearKms(connection);
    replace(connection->sseKey, key.instance());
    key.release();
    replace(connection->sseKeyAlgorithm, algorithm.release());
    return OX_OK;
}

// No algorithm is kept, so the default one applies.
OXStatus setTextKey(OXS3Connection connection, std::string_view text) {
    Owned<OXU8String> key;
    if (OXStatus st = copyText(connection, text, key); st != OX_OK) return st;
    clearKms(connection);
    replace(connection->sseKey, key.instance());
    key.release();
    replace(connection->sseKeyAlgorithm, static_cast<OXU8String*>(nullptr));
    return OX_OK;
}

// ---- headers

OXStatus setText(OXDictionary headers, std::string_view name, std::string_view value) {
    return headers->setU8ValueU8(headers, name.data(), name.size(), value.data(), value.size());
}

OXStatus setString(OXDictionary headers, std::string_view name, OXU8String* value) {
    return headers->setValueU8(headers, name.data(), name.size(), &value->instance);
}

OXStatus base64(OXS3Extension* ext, OX_POOL_S* pool, std::string_view bytes, Owned<OXU8String>& out) {
    return webClient(ext)->base64EncodeU8(ext->oxstring, pool, bytes.data(), bytes.size(), out.out());
}

std::string_view algorithmOrDefault(const OXU8String* keyAlgorithm) {
    const std::string_view given = view(keyAlgorithm);
    return given.empty() ? kDefaultAlgorithm : given;
}

OXStatus setKmsHeaders(OXS3Extension* ext, OXDictionary headers, const OXU8String* kmsKeyId,
                       const OXU8String* kmsKeyContext) {
    const KeyHeaderNames& names = keyHeaderNames;
    OXStatus st = setText(headers, names.encryptionHeader, kKmsEncryption);
    if (st == OX_OK && kmsKeyId->len != 0) st = setText(headers, names.keyIdHeader, view(kmsKeyId));
    if (st != OX_OK || view(kmsKeyContext).empty()) return st;
    Owned<OXU8String> context;
    st = base64(ext, headers->pool, view(kmsKeyContext), context);
    if (st == OX_OK) st = setString(headers, names.keyContextHeader, context.get());
    return st;
}

struct KeyBytes {
    std::string_view bytes;
    bool isText = false;
};

OXStatus keyBytesOf(const OXInstance* key, KeyBytes* out) {
    if (hasType(key, OX_TYPE_DATA)) {
        const auto* data = reinterpret_cast<const OXData*>(key);
        *out = {std::string_view(reinterpret_cast<const char*>(data->bytes), data->len), false};
        return OX_OK;
    }
    if (!hasType(key, OX_TYPE_U8STRING)) return OX_INVALID_ARGUMENT;
    *out = {view(reinterpret_cast<const OXU8String*>(key)), true};
    return OX_OK;
}

// Only a key given as text is traced: key bytes may not be printable.
void traceTextKey(std::string_view key, const uint8_t (&md5)[OX_MD5_LEN], std::string_view md5Base64) {
    if (!logEnabled(encryptionLogger, LL_Trace)) return;
    char32_t hex[2 * OX_MD5_LEN + 1] = {};
    for (size_t i = 0; i < OX_MD5_LEN; ++i) {
        hex[2 * i] = kHexDigits[md5[i] >> 4];
        hex[2 * i + 1] = kHexDigits[md5[i] & 0xf];
    }
    OXS3_LOG(encryptionLogger, LL_Trace, U"Encrypting key '%.*hs'", static_cast<int>(key.size()), key.data());
    OXS3_LOG(encryptionLogger, LL_Trace, U"MD5 of key: %s", wide(hex));
    OXS3_LOG(encryptionLogger, LL_Trace, U"Base64(MD5) of key: %.*hs", static_cast<int>(md5Base64.size()),
             md5Base64.data());
}

OXStatus setCustomerKeyHeaders(OXS3Extension* ext, OXDictionary headers, const KeyHeaderNames& names,
                               const OXInstance* key) {
    KeyBytes key8;
    Owned<OXU8String> keyText, md5Text;
    uint8_t md5[OX_MD5_LEN];
    OXStatus st = keyBytesOf(key, &key8);
    if (st == OX_OK) st = base64(ext, headers->pool, key8.bytes, keyText);
    if (st == OX_OK) st = setString(headers, names.keyHeader, keyText.get());
    if (st == OX_OK) st = webClient(ext)->md5(key8.bytes.data(), key8.bytes.size(), md5);
    if (st == OX_OK) st = base64(ext, headers->pool, std::string_view(reinterpret_cast<const char*>(md5), sizeof md5), md5Text);
    if (st == OX_OK) st = setString(headers, names.keyMD5Header, md5Text.get());
    if (st == OX_OK && key8.isText) traceTextKey(key8.bytes, md5, view(md5Text.get()));
    return st;
}

OXStatus setSseCHeaders(OXS3Extension* ext, OXDictionary headers, const KeyHeaderNames& names,
                        const OXInstance* key, const OXU8String* keyAlgorithm) {
    OXStatus st = setText(headers, names.keyAlgorithmHeader, algorithmOrDefault(keyAlgorithm));
    if (st == OX_OK) st = setCustomerKeyHeaders(ext, headers, names, key);
    return st;
}

}  // namespace

OXStatus oxs3ConnectionSetEncryption(OXS3Connection connection, UTF8CStr kmsKeyId, UTF8CStr kmsKeyContext,
                                     UTF8CStr key, OXBoolean keyIsHex) {
    if (!connection) return OX_INVALID_ARGUMENT;
    Logger_S* logger = connection->oxs3->logger;
    OXS3_LOG(logger, LL_Debug, U"oxs3ConnectionSetEncryption");
    if (kmsKeyId && key) {
        OXS3_LOG(logger, LL_Debug,
                 U"oxs3ConnectionSetEncryption: Both KMS and SSE-C encryption specified. Use one or the other.");
        return OX_INVALID_ARGUMENT;
    }
    if (!kmsKeyId && !key) {
        OXS3_LOG(logger, LL_Debug, U"oxs3ConnectionSetEncryption: No encryption keys specified.");
        return OX_INVALID_ARGUMENT;
    }
    if (kmsKeyId) return setKms(connection, kmsKeyId, kmsKeyContext);
    return keyIsHex ? setHexKey(connection, key) : setTextKey(connection, key);
}

OXStatus setEncryptionHeaders(OXS3Extension* ext, OXDictionary headers, const OXInstance* key,
                              const OXU8String* keyAlgorithm, const OXU8String* kmsKeyId,
                              const OXU8String* kmsKeyContext, bool copySource) {
    if (!ext || !headers) return OX_INVALID_ARGUMENT;
    if (copySource) {
        if (kmsKeyId || !key) return OX_OK;
        return setSseCHeaders(ext, headers, copySourceKeyHeaderNames, key, keyAlgorithm);
    }
    if (kmsKeyId) return setKmsHeaders(ext, headers, kmsKeyId, kmsKeyContext);
    if (!key) return OX_OK;
    return setSseCHeaders(ext, headers, keyHeaderNames, key, keyAlgorithm);
}

EncryptionArgs withConnectionEncryption(OXS3Connection connection, OXInstance* key, OXU8String* keyAlgorithm,
                                        OXU8String* kmsKeyId, OXU8String* kmsKeyContext) {
    if (key || keyAlgorithm || kmsKeyId || kmsKeyContext) return {key, keyAlgorithm, kmsKeyId, kmsKeyContext};
    return {connection->sseKey, connection->sseKeyAlgorithm, connection->kmsKeyId, connection->kmsKeyContext};
}

OXStatus validateKeys(const OXInstance* key, const OXU8String* keyAlgorithm, const OXU8String* kmsKeyId,
                      const OXU8String* kmsKeyContext) {
    if (key) return kmsKeyId || kmsKeyContext ? OX_INVALID_ARGUMENT : OX_OK;
    return kmsKeyId && keyAlgorithm ? OX_INVALID_ARGUMENT : OX_OK;
}

OXStatus chooseEncryption(OXS3Connection connection, OXInstance* key, OXU8String* keyAlgorithm,
                          OXU8String* kmsKeyId, OXU8String* kmsKeyContext, EncryptionArgs* chosen) {
    if (!connection || !chosen) return OX_INVALID_ARGUMENT;
    const EncryptionArgs args = withConnectionEncryption(connection, key, keyAlgorithm, kmsKeyId, kmsKeyContext);
    OXStatus st = validateKeys(args.key, args.keyAlgorithm, args.kmsKeyId, args.kmsKeyContext);
    if (st == OX_OK) *chosen = args;
    return st;
}

}  // namespace s3
