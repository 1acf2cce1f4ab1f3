// Object reads, writes and chunked puts against the real RADOS Gateway: what goes in comes
// back out with the same SHA-256, the gateway verifies every signature (chunk signatures
// included), and failures give their named statuses. Each test owns a fresh bucket that is
// emptied and removed at its end, whatever happened.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "bucketfixture.h"
#include "oxs3read.h"

namespace {

using oxtest::Connection;

std::string sha256(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
    return std::string(reinterpret_cast<char*>(digest), length);
}

std::string pattern(size_t n, unsigned seed = 7) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 131 + seed * 17 + i / 251) & 0xff);
    return s;
}

// Percent-encoded for the fixture's own signer, which signs paths as they are sent.
std::string encodedPath(std::string_view path) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        if (isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

class Objects : public oxtest::BucketFixture {
protected:
    oxtest::ScopedBucket bucket{"obj"};
    std::vector<std::string> paths;  // removed at the end
    Connection c;

    void SetUp() override {
        BucketFixture::SetUp();
        ASSERT_TRUE(bucket.create());
        c = gateway({false}, env.secretKey);
        ASSERT_TRUE(c);
    }
    void TearDown() override {
        for (const std::string& path : paths) oxtest::rawS3("DELETE", "/" + bucket.name + encodedPath(path));
        c = Connection();
        BucketFixture::TearDown();
    }
    const char* name() const { return bucket.name.c_str(); }

    OXStatus put(const std::string& path, std::string_view data, OXDictionary metadata = nullptr) {
        paths.push_back(path);
        return c->putObject(c.get(), name(), path.c_str(), oxs3AccessDefault, nullptr, metadata, nullptr, OX_FALSE,
                            data.data(), data.size());
    }
    OXStatus get(const std::string& path, std::string* out) {
        void* data = nullptr;
        OXMemSize length = 0;
        const OXStatus st = c->getObject(c.get(), pool, name(), path.c_str(), &data, &length);
        if (st == OX_OK) out->assign(static_cast<const char*>(data), length);
        if (data) pool->memFree(pool, data);
        return st;
    }
    OXStatus head(const std::string& path, OXMemSize* length = nullptr) {
        OXS3ObjectInformation* info = nullptr;
        const OXStatus st = c->getObjectInfo(c.get(), name(), path.c_str(), &info);
        if (st == OX_OK) {
            EXPECT_TRUE(info->hasContentLength);
            EXPECT_NE(info->eTag, nullptr);
            EXPECT_GT(info->lastModifiedDate, 0.0);
            if (length) *length = info->contentLength;
            info->release(info);
        }
        return st;
    }
    OXStatus chunked(const std::string& path, std::string_view data, OXMemSize chunkSize, size_t piece) {
        paths.push_back(path);
        OXStatus st = c->startChunkedPut(c.get(), name(), path.c_str(), oxs3AccessDefault, nullptr, nullptr,
                                         nullptr, OX_FALSE, data.size(), chunkSize);
        for (size_t at = 0; st == OX_OK && at < data.size(); at += piece)
            st = c->putChunk(c.get(), data.data() + at, std::min(piece, data.size() - at));
        return st == OX_OK && !data.empty() ? c->finishChunkedPut(c.get()) : st;
    }
    std::string errorText() const { return oxtest::stringText(c->errorMessage); }
};

TEST_F(Objects, RoundTripsEverySizeAroundTheBoundaries) {
    for (size_t size : {0, 8191, 8192, 8193, 65536, 65537, 1048579}) {
        const std::string path = "/sized/" + std::to_string(size);
        const std::string data = pattern(size);
        ASSERT_EQ(put(path, data), OX_OK) << size;
        OXMemSize length = 0;
        ASSERT_EQ(head(path, &length), OX_OK) << size;
        EXPECT_EQ(length, size);
        std::string back;
        ASSERT_EQ(get(path, &back), OX_OK) << size;
        EXPECT_EQ(sha256(back), sha256(data)) << size;
    }
}

TEST_F(Objects, KeepsKeysWithCharactersThatNeedEncoding) {
    for (const char* key : {"/unicod\xc3\xa9/\xd0\xba\xd0\xbb\xd1\x8e\xd1\x87", "/a&b=c", "/dash-and_under",
                            "/dir/sub dir/x+y%z"}) {
        const std::string data = std::string("content of ") + key;
        ASSERT_EQ(put(key, data), OX_OK) << key;
        std::string back;
        ASSERT_EQ(get(key, &back), OX_OK) << key;
        EXPECT_EQ(back, data) << key;
        EXPECT_EQ(head(key), OX_OK) << key;
    }
}

TEST_F(Objects, SendsMetadataStorageClassAndRedirect) {
    oxtest::Dictionary metadata;
    ASSERT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, 0, metadata.out()), OX_OK);
    ASSERT_EQ(metadata->setU8ValueU8(metadata.get(), "color", 5, "blue", 4), OX_OK);
    ASSERT_EQ(metadata->setU8ValueU8(metadata.get(), "x-amz-meta-shape", 16, "round", 5), OX_OK);
    paths.push_back("/meta");
    ASSERT_EQ(c->putObject(c.get(), name(), "/meta", oxs3AccessDefault, nullptr, metadata.get(), "/elsewhere",
                           OX_FALSE, "m", 1),
              OX_OK)
        << errorText();
    const oxtest::RawHttpResponse reply = oxtest::rawS3("HEAD", "/" + bucket.name + "/meta");
    ASSERT_EQ(reply.status, 200);
    EXPECT_EQ(reply.header("x-amz-meta-color"), "blue");
    EXPECT_EQ(reply.header("x-amz-meta-shape"), "round") << "a prefixed key is sent as it is";
    EXPECT_EQ(reply.header("x-amz-website-redirect-location"), "/elsewhere");
}

TEST_F(Objects, PutWithGrantsGivesTheGranteeItsPermission) {
    s3::Owned<OXS3ACL_S> acl;
    ASSERT_EQ(ext->createACL(ext, pool, acl.out()), OX_OK);
    ASSERT_EQ(acl->addUserIdsU8(acl.get(), oxs3ReadAccess, env.altUserId.c_str()), OX_OK);
    paths.push_back("/granted");
    ASSERT_EQ(c->putObject(c.get(), name(), "/granted", oxs3AccessList, acl.get(), nullptr, nullptr, OX_FALSE, "g", 1),
              OX_OK)
        << errorText();
    const oxtest::RawHttpResponse read = oxtest::rawS3("GET", "/" + bucket.name + "/granted", "acl");
    ASSERT_EQ(read.status, 200) << read.body;
    const size_t grantee = read.body.find("<ID>" + env.altUserId + "</ID>");
    ASSERT_NE(grantee, std::string::npos) << read.body;
    EXPECT_EQ(read.body.find("<Permission>READ</Permission>", grantee), read.body.find("<Permission>", grantee))
        << read.body;
}

struct Range {
    uint64_t offset;
    OXMemSize length;
    bool readThreads;
    OXMemSize expected;
};

TEST_F(Objects, ReadsRangesIntoTheCallersBuffer) {
    const std::string data = pattern(100000);
    ASSERT_EQ(put("/ranged", data), OX_OK);
    const Range ranges[] = {
        {0, 100000, false, 100000}, {12345, 54321, false, 54321},
        {99990, 100, false, 10},   // past the end: what there is
        {99990, 100, true, 9},     // the threaded path stops one byte short of the end
        {100000, 0, true, 0},      // empty, at the end
    };
    for (const Range& r : ranges) {
        c->useReadThreads = r.readThreads;
        std::string buffer(r.length, '\0');
        OXMemSize got = 12345678;
        ASSERT_EQ(c->getObjectRange(c.get(), name(), "/ranged", buffer.data(), r.offset, r.length, &got), OX_OK)
            << r.offset << "+" << r.length;
        ASSERT_EQ(got, r.expected) << r.offset << "+" << r.length;
        EXPECT_EQ(buffer.substr(0, got), data.substr(r.offset, got)) << r.offset << "+" << r.length;
    }
    OXMemSize got = 0;
    char byte = 0;
    EXPECT_EQ(c->getObjectRange(c.get(), name(), "/ranged", &byte, 100001, 0, &got), OX_END_OF_DATA);
    EXPECT_EQ(c->getObjectRange(c.get(), name(), "/ranged", &byte, 100001, 1, &got), OX_INVALID_ARGUMENT);
}

TEST_F(Objects, ChunkedPutsAreAcceptedAndReadBackEqual) {
    struct Case {
        size_t total;
        OXMemSize chunkSize;
        size_t piece;
    };
    for (const Case& k : {Case{1, 8192, 1}, Case{24576, 8192, 777}, Case{100000, 0, 4096},
                          Case{300001, 65536, 100000}}) {
        const std::string path = "/chunked/" + std::to_string(k.total);
        const std::string data = pattern(k.total, 3);
        ASSERT_EQ(chunked(path, data, k.chunkSize, k.piece), OX_OK) << k.total << " " << errorText();
        EXPECT_EQ(c->activeChunk, nullptr);
        std::string back;
        ASSERT_EQ(get(path, &back), OX_OK) << k.total;
        EXPECT_EQ(sha256(back), sha256(data)) << k.total;
    }
    ASSERT_EQ(chunked("/chunked/empty", "", 8192, 1), OX_OK);
    EXPECT_EQ(c->activeChunk, nullptr) << "an empty put is an ordinary one";
    std::string back = "x";
    EXPECT_EQ(get("/chunked/empty", &back), OX_OK);
    EXPECT_EQ(back, "");
}

TEST_F(Objects, ChunkedPutFedTooMuchOrFinishedEarlyLeavesNoObject) {
    const std::string data = pattern(20001);
    paths = {"/over", "/short"};  // should the server keep them after all
    ASSERT_EQ(c->startChunkedPut(c.get(), name(), "/over", oxs3AccessDefault, nullptr, nullptr, nullptr, OX_FALSE,
                                 20000, 8192),
              OX_OK);
    EXPECT_EQ(c->putChunk(c.get(), data.data(), data.size()), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->activeChunk, nullptr);
    EXPECT_EQ(head("/over"), OX_HTTP_NOT_FOUND);

    ASSERT_EQ(c->startChunkedPut(c.get(), name(), "/short", oxs3AccessDefault, nullptr, nullptr, nullptr, OX_FALSE,
                                 20000, 8192),
              OX_OK);
    ASSERT_EQ(c->putChunk(c.get(), data.data(), 10000), OX_OK);
    EXPECT_EQ(c->finishChunkedPut(c.get()), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->activeChunk, nullptr);
    EXPECT_EQ(head("/short"), OX_HTTP_NOT_FOUND);
    EXPECT_EQ(c->finishChunkedPut(c.get()), OX_INVALID_ARGUMENT) << "nothing started";
}

// The same object written and read under each kind of server-side encryption.
struct Encryption {
    const char* name;
    const char* key;  // SSE-C
    bool hex;
    bool kms;
};

class EncryptedObjects : public Objects, public ::testing::WithParamInterface<Encryption> {
protected:
    void encrypt(OXS3Connection on, const char* key, bool hex) {
        const Encryption& e = GetParam();
        ASSERT_EQ(on->setEncryption(on, e.kms ? env.kmsKeyId.c_str() : nullptr, nullptr, e.kms ? nullptr : key,
                                    hex ? OX_TRUE : OX_FALSE),
                  OX_OK);
    }
};

TEST_P(EncryptedObjects, PutHeadGetAndRangeRead) {
    const Encryption& e = GetParam();
    encrypt(c.get(), e.key, e.hex);
    const std::string data = pattern(70000, 5);
    ASSERT_EQ(put("/secret", data), OX_OK) << errorText();
    OXMemSize length = 0;
    ASSERT_EQ(head("/secret", &length), OX_OK);
    EXPECT_EQ(length, data.size());
    std::string back;
    ASSERT_EQ(get("/secret", &back), OX_OK) << errorText();
    EXPECT_EQ(sha256(back), sha256(data));
    std::string part(1000, '\0');
    OXMemSize got = 0;
    ASSERT_EQ(c->getObjectRange(c.get(), name(), "/secret", part.data(), 30000, part.size(), &got), OX_OK);
    EXPECT_EQ(part.substr(0, got), data.substr(30000, 1000));
    ASSERT_EQ(chunked("/secret-chunked", data, 16384, 5000), OX_OK) << errorText();
    ASSERT_EQ(get("/secret-chunked", &back), OX_OK);
    EXPECT_EQ(sha256(back), sha256(data));
    if (e.kms) return;

    Connection plain = gateway({false}, env.secretKey);
    std::swap(c, plain);
    EXPECT_EQ(head("/secret"), OXS3_BAD_REQUEST) << "no customer key";
    EXPECT_EQ(get("/secret", &back), OXS3_BAD_REQUEST) << "no customer key: the HEAD before the read";
    c->useReadThreads = OX_FALSE;
    EXPECT_EQ(get("/secret", &back), OXS3_INVALID_ARGUMENT) << "no customer key";
    EXPECT_NE(c->errorMessage, nullptr) << "the server's sentence is kept";
    encrypt(c.get(), "another key of thirty-two bytes!", false);
    EXPECT_EQ(head("/secret"), OXS3_BAD_REQUEST) << "the wrong customer key";
    const OXStatus wrong = get("/secret", &back);  // read threads off: the GET itself answers
    EXPECT_EQ(wrong, OXS3_INVALID_ARGUMENT) << "the wrong customer key";
    EXPECT_NE(c->errorMessage, nullptr);
    EXPECT_EQ(c->getObjectRange(c.get(), name(), "/secret", part.data(), 0, 10, &got), OXS3_BAD_REQUEST);
    std::swap(c, plain);
}

constexpr const char* kHexKey = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

INSTANTIATE_TEST_SUITE_P(Kinds, EncryptedObjects,
                         ::testing::Values(Encryption{"CustomerKeyHex", kHexKey, true, false},
                                           Encryption{"CustomerKeyText", "a customer key of 32 bytes here!", false,
                                                      false},
                                           Encryption{"Kms", nullptr, false, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Objects, FailuresGiveTheirNamedStatuses) {
    std::string back;
    EXPECT_EQ(head("/missing"), OX_HTTP_NOT_FOUND);
    EXPECT_EQ(c->errorMessage, nullptr) << "a HEAD has no error document";
    EXPECT_EQ(get("/missing", &back), OX_HTTP_NOT_FOUND);
    EXPECT_EQ(get("no-slash", &back), OXS3_PATH_NOT_ABSOLUTE);
    EXPECT_EQ(put("no-slash", "x"), OXS3_PATH_NOT_ABSOLUTE);
    void* data = nullptr;
    OXMemSize length = 0;
    EXPECT_EQ(c->getObject(c.get(), pool, "Not_A_Bucket", "/x", &data, &length), OX_INVALID_ARGUMENT);
    const std::string gone = bucket.name + "-gone";
    EXPECT_EQ(c->getObject(c.get(), pool, gone.c_str(), "/x", &data, &length), OX_HTTP_NOT_FOUND);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(c->putObject(c.get(), gone.c_str(), "/x", oxs3AccessDefault, nullptr, nullptr, nullptr, OX_FALSE, "x", 1),
              OX_HTTP_NOT_FOUND);
}

}  // namespace
