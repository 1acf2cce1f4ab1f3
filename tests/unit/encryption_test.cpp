// Server-side encryption: SSE-C and SSE-KMS headers of a request and of a copy source, the
// connection's settings, call values over those settings, and refused key combinations.
// Expected Base64 and MD5 texts were computed apart from the extension.
#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <map>
#include <string>

#include "connfixture.h"
#include "oxs3encrypt.h"
#include "oxs3instance.h"
#include "oxs3request.h"

namespace {

using Headers = std::map<std::string, std::string>;

constexpr const char* kTextKey = "0123456789abcdef0123456789abcdef";
constexpr const char* kHexKey = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";  // bytes 0..31
constexpr const char* kKmsId = "arn:aws:kms:us-east-1:111122223333:key/k";
constexpr const char* kSse = "x-amz-server-side-encryption";

const Headers kTextKeyHeaders = {{"x-amz-server-side-encryption-customer-algorithm", "AES256"},
                                 {"x-amz-server-side-encryption-customer-key", "MDEyMzQ1Njc4OWFiY2RlZjAxMjM0NTY3ODlhYmNkZWY="},
                                 {"x-amz-server-side-encryption-customer-key-md5", "hRasmdxgYDKV3nvbahU1MA=="}};
const Headers kBytesKeyHeaders = {{"x-amz-server-side-encryption-customer-algorithm", "AES256"},
                                  {"x-amz-server-side-encryption-customer-key", "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8="},
                                  {"x-amz-server-side-encryption-customer-key-md5", "tP/LI3N87DFaSk0aoqYgzg=="}};

// The copy-source names are the request names with "x-amz-copy-source-" before "server-side".
Headers copySource(const Headers& h) {
    Headers out;
    for (const auto& [name, value] : h) out["x-amz-copy-source-" + name.substr(6)] = value;
    return out;
}

enum class Key { none, text, bytes };

struct HeaderCase {
    const char* name;
    Key key;
    const char* algorithm;
    const char* kmsId;
    const char* context;
    bool copySource;
    Headers expected;
};

const HeaderCase kHeaderCases[] = {
    {"TextKeyDefaultsToAES256", Key::text, nullptr, nullptr, nullptr, false, kTextKeyHeaders},
    {"BinaryKeyWithItsAlgorithm", Key::bytes, "AES256", nullptr, nullptr, false, kBytesKeyHeaders},
    {"KmsWithContext", Key::none, nullptr, kKmsId, R"({"Department":"Finance"})", false,
     {{kSse, "aws:kms"}, {"x-amz-server-side-encryption-aws-kms-key-id", kKmsId},
      {"x-amz-server-side-encryption-context", "eyJEZXBhcnRtZW50IjoiRmluYW5jZSJ9"}}},
    {"KmsIgnoresACustomerKey", Key::text, nullptr, "", nullptr, false, {{kSse, "aws:kms"}}},
    {"CopySourceTextKey", Key::text, nullptr, nullptr, nullptr, true, copySource(kTextKeyHeaders)},
    {"CopySourceNeverUsesKms", Key::text, nullptr, kKmsId, nullptr, true, {}},
    {"NothingGivenAddsNothing", Key::none, nullptr, nullptr, nullptr, false, {}},
};

void PrintTo(const HeaderCase& c, std::ostream* os) { *os << c.name; }

class Encryption : public oxtest::ConnectionFixture {
protected:
    void SetUp() override {
        ConnectionFixture::SetUp();
        conn = connect(US_Standard_Region);
    }
    void TearDown() override {
        conn.reset();
        held.clear();
        ConnectionFixture::TearDown();
    }
    OXU8String* text(const char* s) {
        OXU8String* out = nullptr;
        if (!s) return nullptr;
        EXPECT_EQ(ext->oxstring->createU8(ext->oxstring, pool, s, std::strlen(s), OX_STR_COPY, &out), OX_OK);
        hold(&out->instance);
        return out;
    }
    OXInstance* key(Key kind) {
        if (kind != Key::bytes) return kind == Key::text ? &text(kTextKey)->instance : nullptr;
        uint8_t bytes[32];
        for (uint8_t i = 0; i < 32; ++i) bytes[i] = i;
        OXData* data = nullptr;
        EXPECT_EQ(ext->oxstring->createData(ext->oxstring, pool, bytes, sizeof bytes, &data), OX_OK);
        return hold(&data->instance);
    }
    OXInstance* hold(OXInstance* i) { return i ? held.emplace_back(i).get() : nullptr; }
    Headers headersFor(const s3::EncryptionArgs& a, bool copySource) {
        oxtest::Dictionary d;
        EXPECT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, 0, d.out()), OX_OK);
        EXPECT_EQ(s3::setEncryptionHeaders(ext, d.get(), a.key, a.keyAlgorithm, a.kmsKeyId, a.kmsKeyContext, copySource), OX_OK);
        Headers out;
        void* at = nullptr;
        OXU8String* name = nullptr;
        OXInstance* value = nullptr;
        while (d->nextValue(d.get(), &at, &name, &value) == OX_OK) out[oxtest::stringText(name)] = oxtest::valueText(value);
        return out;
    }
    s3::EncryptionArgs fromConnection() { return s3::withConnectionEncryption(conn.get(), nullptr, nullptr, nullptr, nullptr); }

    oxtest::Connection conn;
    std::list<s3::Owned<OXInstance>> held;
};

class EncryptionHeaders : public Encryption, public ::testing::WithParamInterface<HeaderCase> {};

TEST_P(EncryptionHeaders, AreExactlyTheExpectedOnes) {
    const HeaderCase& c = GetParam();
    EXPECT_EQ(headersFor({key(c.key), text(c.algorithm), text(c.kmsId), text(c.context)}, c.copySource), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, EncryptionHeaders, ::testing::ValuesIn(kHeaderCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Encryption, HexKeyBecomesItsBytesWithAES256) {
    ASSERT_EQ(conn->setEncryption(conn.get(), nullptr, nullptr, kHexKey, OX_TRUE), OX_OK);
    ASSERT_TRUE(s3::hasType(conn->sseKey, OX_TYPE_DATA));
    EXPECT_EQ(oxtest::stringText(conn->sseKeyAlgorithm), "AES256");
    EXPECT_EQ(headersFor(fromConnection(), false), kBytesKeyHeaders);
}

TEST_F(Encryption, RequestWithoutValuesCarriesTheConnectionsKey) {
    ASSERT_EQ(conn->setEncryption(conn.get(), nullptr, nullptr, kTextKey, OX_FALSE), OX_OK);
    EXPECT_EQ(conn->sseKeyAlgorithm, nullptr);
    const s3::EncryptionArgs a = fromConnection();
    oxtest::Dictionary d;
    ASSERT_EQ(s3::createRequest(conn.get(), a.key, a.keyAlgorithm, a.kmsKeyId, a.kmsKeyContext, d.out(), 0), OX_OK);
    for (const auto& [name, value] : kTextKeyHeaders) EXPECT_EQ(oxtest::entryText(d.get(), name), value) << name;
}

TEST_F(Encryption, OneKindReplacesTheOther) {
    ASSERT_EQ(conn->setEncryption(conn.get(), kKmsId, "{}", nullptr, OX_FALSE), OX_OK);
    EXPECT_EQ(conn->sseKey, nullptr);
    EXPECT_EQ(oxtest::stringText(conn->kmsKeyContext), "{}");
    ASSERT_EQ(conn->setEncryption(conn.get(), nullptr, nullptr, kTextKey, OX_FALSE), OX_OK);
    EXPECT_EQ(conn->kmsKeyId, nullptr);
}

TEST_F(Encryption, RefusedSettingsLeaveTheConnectionAsItWas) {
    struct Row {
        const char* kmsId;
        const char* key;
        OXBoolean hex;
        OXStatus status;
        const char* logLine;
    } rows[] = {
        {kKmsId, kTextKey, OX_FALSE, OX_INVALID_ARGUMENT,
         "oxs3ConnectionSetEncryption: Both KMS and SSE-C encryption specified. Use one or the other."},
        {nullptr, nullptr, OX_FALSE, OX_INVALID_ARGUMENT, "oxs3ConnectionSetEncryption: No encryption keys specified."},
        {nullptr, "00g1", OX_TRUE, OX_FAILED, "oxs3ConnectionSetEncryption"},
        {nullptr, "0a1", OX_TRUE, OX_FAILED, "oxs3ConnectionSetEncryption"},  // odd final digit
    };
    ASSERT_EQ(conn->setEncryption(conn.get(), nullptr, nullptr, kTextKey, OX_FALSE), OX_OK);
    OXInstance* before = conn->sseKey;
    for (const Row& r : rows) {
        oxtest::LogCapture log(ext->logger);
        EXPECT_EQ(conn->setEncryption(conn.get(), r.kmsId, nullptr, r.key, r.hex), r.status) << r.logLine;
        EXPECT_TRUE(log.contains(r.logLine)) << r.logLine;
        EXPECT_EQ(conn->sseKey, before);
        EXPECT_EQ(conn->kmsKeyId, nullptr);
    }
}

TEST_F(Encryption, CallValuesWinOverTheConnectionsAndAreValidated) {
    ASSERT_EQ(conn->setEncryption(conn.get(), nullptr, nullptr, kTextKey, OX_FALSE), OX_OK);
    s3::EncryptionArgs chosen{};
    ASSERT_EQ(s3::chooseEncryption(conn.get(), nullptr, nullptr, text(kKmsId), nullptr, &chosen), OX_OK);
    EXPECT_EQ(chosen.key, nullptr);
    EXPECT_EQ(oxtest::stringText(chosen.kmsKeyId), kKmsId);
    EXPECT_EQ(fromConnection().key, conn->sseKey);
    s3::EncryptionArgs untouched{};
    EXPECT_EQ(s3::chooseEncryption(conn.get(), key(Key::text), nullptr, text(kKmsId), nullptr, &untouched),
              OX_INVALID_ARGUMENT);
    EXPECT_EQ(untouched.key, nullptr);
}

TEST_F(Encryption, ValidateKeysRefusesMixedKinds) {
    // Which of key, algorithm, KMS key id and context are given, and the answer.
    const std::pair<const char*, OXStatus> rows[] = {
        {"ka..", OX_OK}, {"k.i.", OX_INVALID_ARGUMENT}, {"k..c", OX_INVALID_ARGUMENT},
        {"..ic", OX_OK}, {".ai.", OX_INVALID_ARGUMENT}, {"....", OX_OK}};
    OXInstance* k = key(Key::text);
    OXU8String* s = text("x");
    for (const auto& [given, status] : rows)
        EXPECT_EQ(s3::validateKeys(given[0] != '.' ? k : nullptr, given[1] != '.' ? s : nullptr,
                                   given[2] != '.' ? s : nullptr, given[3] != '.' ? s : nullptr),
                  status)
            << given;
}

TEST_F(Encryption, OnlyATextKeyIsTraced) {
    oxtest::LogCapture log(ext->logger);
    headersFor({key(Key::bytes), nullptr, nullptr, nullptr}, false);
    EXPECT_FALSE(log.mentions("of key"));
    headersFor({key(Key::text), nullptr, nullptr, nullptr}, false);
    EXPECT_TRUE(log.contains(std::string("Encrypting key '") + kTextKey + "'"));
    EXPECT_TRUE(log.contains("MD5 of key: 8516ac99dc60603295de7bdb6a153530"));
    EXPECT_TRUE(log.contains("Base64(MD5) of key: hRasmdxgYDKV3nvbahU1MA=="));
}

}  // namespace
