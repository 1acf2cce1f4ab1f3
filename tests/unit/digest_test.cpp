// Digests and byte encodings of the web client service, checked against published vectors.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "ox/webclient.h"
#include "testhost.h"

namespace {

std::string hexOf(const uint8_t* bytes, size_t len) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < len; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xf];
    }
    return text;
}

std::string repeated(char c, size_t n) { return std::string(n, c); }

std::string bytesFromHex(std::string_view hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    return bytes;
}

class WebClientTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(wc) << "the webclient service did not load"; }

    std::string sha256(std::string_view data) {
        uint8_t digest[OX_SHA256_LEN];
        EXPECT_EQ(wc->sha256(data.data(), data.size(), digest), OX_OK);
        return hexOf(digest, sizeof digest);
    }
    std::string hmac(std::string_view key, std::string_view data) {
        uint8_t mac[OX_SHA256_LEN];
        EXPECT_EQ(wc->hmacSha256(key.data(), key.size(), data.data(), data.size(), mac), OX_OK);
        return hexOf(mac, sizeof mac);
    }
    std::string md5(std::string_view data) {
        uint8_t digest[OX_MD5_LEN];
        EXPECT_EQ(wc->md5(data.data(), data.size(), digest), OX_OK);
        return hexOf(digest, sizeof digest);
    }
    std::string base64(std::string_view data) {
        std::string text(data.size() / 3 * 4 + 4, '\0');
        size_t len = 0;
        EXPECT_EQ(wc->base64Encode(data.data(), data.size(), text.data(), text.size(), &len), OX_OK);
        text.resize(len);
        return text;
    }
    OXStatus decode(std::string_view text, std::string& bytes) {
        std::string out(text.size(), '\0');
        size_t len = 0;
        OXStatus st =
            wc->base64Decode(text.data(), text.size(), reinterpret_cast<uint8_t*>(out.data()), out.size(), &len);
        if (st == OX_OK) bytes.assign(out, 0, len);
        return st;
    }

    oxtest::Service<OXWebClient_S> wc{"webclient"};
};

constexpr std::string_view kEmptySha256 = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr std::string_view k448Bits = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
constexpr std::string_view k448BitsSha256 = "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1";
constexpr std::string_view kMillionASha256 = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";

// ---- SHA-256 (FIPS 180-2 appendix B)

using Sha256 = WebClientTest;

TEST_F(Sha256, HashesOneBlockMessage) {
    EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(Sha256, HashesEmptyMessage) {
    EXPECT_EQ(sha256(""), kEmptySha256);
    uint8_t digest[OX_SHA256_LEN];
    ASSERT_EQ(wc->sha256(nullptr, 0, digest), OX_OK);
    EXPECT_EQ(hexOf(digest, sizeof digest), kEmptySha256);
}

TEST_F(Sha256, HashesTwoBlockMessage) { EXPECT_EQ(sha256(k448Bits), k448BitsSha256); }

TEST_F(Sha256, RejectsMissingBytes) {
    uint8_t digest[OX_SHA256_LEN];
    EXPECT_EQ(wc->sha256(nullptr, 3, digest), OX_INVALID_ARGUMENT);
}

class Sha256Streaming : public WebClientTest {
protected:
    std::string digestInPieces(std::string_view data, size_t piece) {
        OXSha256_S* ctx = nullptr;
        EXPECT_EQ(wc->sha256Init(pool, &ctx), OX_OK);
        if (!ctx) return {};
        for (size_t at = 0; at < data.size(); at += piece)
            EXPECT_EQ(ctx->update(ctx, data.data() + at, std::min(piece, data.size() - at)), OX_OK);
        uint8_t digest[OX_SHA256_LEN];
        EXPECT_EQ(ctx->final(ctx, digest), OX_OK);
        EXPECT_EQ(ctx->generic.destroy(ctx), OX_OK);
        return hexOf(digest, sizeof digest);
    }

    oxtest::TestPool pool;
};

TEST_F(Sha256Streaming, HashesMillionAsGivenInUnevenPieces) {
    std::string million = repeated('a', 1000000);
    EXPECT_EQ(digestInPieces(million, 997), kMillionASha256);
    EXPECT_EQ(digestInPieces(million, 64), kMillionASha256);
}

TEST_F(Sha256Streaming, MatchesOneShotForEveryPieceSize) {
    for (size_t piece = 1; piece <= k448Bits.size(); ++piece)
        EXPECT_EQ(digestInPieces(k448Bits, piece), k448BitsSha256);
}

TEST_F(Sha256Streaming, HashesNothingAsEmptyMessage) { EXPECT_EQ(digestInPieces("", 1), kEmptySha256); }

TEST_F(Sha256Streaming, StartsAfreshAfterFinal) {
    OXSha256_S* ctx = nullptr;
    ASSERT_EQ(wc->sha256Init(pool, &ctx), OX_OK);
    uint8_t digest[OX_SHA256_LEN];
    ASSERT_EQ(ctx->update(ctx, "xyz", 3), OX_OK);
    ASSERT_EQ(ctx->final(ctx, digest), OX_OK);
    ASSERT_EQ(ctx->update(ctx, "abc", 3), OX_OK);
    ASSERT_EQ(ctx->final(ctx, digest), OX_OK);
    EXPECT_EQ(hexOf(digest, sizeof digest), sha256("abc"));
    ctx->generic.destroy(ctx);
}

TEST_F(Sha256Streaming, ReportsExhaustedPoolWithoutOutput) {
    OXSha256_S* ctx = nullptr;
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(wc->sha256Init(pool, &ctx), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(ctx, nullptr);
}

// ---- HMAC-SHA256 (RFC 4231 section 4)

using HmacSha256 = WebClientTest;

TEST_F(HmacSha256, Rfc4231Case1) {
    EXPECT_EQ(hmac(repeated('\x0b', 20), "Hi There"),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
}

TEST_F(HmacSha256, Rfc4231Case2KeyShorterThanDigest) {
    EXPECT_EQ(hmac("Jefe", "what do ya want for nothing?"),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

TEST_F(HmacSha256, Rfc4231Case3) {
    EXPECT_EQ(hmac(repeated('\xaa', 20), repeated('\xdd', 50)),
              "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe");
}

TEST_F(HmacSha256, Rfc4231Case4) {
    EXPECT_EQ(hmac(bytesFromHex("0102030405060708090a0b0c0d0e0f10111213141516171819"), repeated('\xcd', 50)),
              "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b");
}

TEST_F(HmacSha256, Rfc4231Case5TruncatedTo128Bits) {
    EXPECT_EQ(hmac(repeated('\x0c', 20), "Test With Truncation").substr(0, 32), "a3b6167473100ee06e0c796c2955552b");
}

TEST_F(HmacSha256, Rfc4231Case6KeyLongerThanBlock) {
    EXPECT_EQ(hmac(repeated('\xaa', 131), "Test Using Larger Than Block-Size Key - Hash Key First"),
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
}

TEST_F(HmacSha256, Rfc4231Case7KeyAndDataLongerThanBlock) {
    EXPECT_EQ(hmac(repeated('\xaa', 131),
                   "This is a test using a larger than block-size key and a larger than block-size data. The key "
                   "needs to be hashed before being used by the HMAC algorithm."),
              "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2");
}

// The chain a request signature's key comes from, with the published example's inputs.
TEST_F(HmacSha256, ChainsIntoSignatureV4SigningKey) {
    std::string key = "AWS4wJalrXUtnFEMI/K7MDENG+bPxRfiCYEXAMPLEKEY";
    for (std::string_view step : {"20120215", "us-east-1", "iam", "aws4_request"}) key = bytesFromHex(hmac(key, step));
    EXPECT_EQ(hexOf(reinterpret_cast<const uint8_t*>(key.data()), key.size()),
              "f4780e2d9f65fa895f9c67b32ce1baf0b0d8a43505a000a1a9e090d414db404d");
}

TEST_F(HmacSha256, AcceptsEmptyKeyAndData) {
    EXPECT_EQ(hmac("", ""), "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
}

// ---- MD5 (RFC 1321 appendix A.5)

using Md5 = WebClientTest;

TEST_F(Md5, MatchesRfc1321TestSuite) {
    EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(md5("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(md5("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(md5("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

// ---- Base64 (RFC 4648 section 10)

using Base64 = WebClientTest;

struct Base64Vector {
    std::string_view bytes;
    std::string_view text;
};
constexpr Base64Vector kRfc4648Vectors[] = {{"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},
                                            {"foo", "Zm9v"},  {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
                                            {"foobar", "Zm9vYmFy"}};

TEST_F(Base64, EncodesRfc4648Vectors) {
    for (const auto& v : kRfc4648Vectors) EXPECT_EQ(base64(v.bytes), v.text) << v.bytes;
}

TEST_F(Base64, DecodesRfc4648Vectors) {
    for (const auto& v : kRfc4648Vectors) {
        std::string bytes;
        EXPECT_EQ(decode(v.text, bytes), OX_OK) << v.text;
        EXPECT_EQ(bytes, v.bytes);
    }
}

TEST_F(Base64, RoundTripsRandomBinaryOfEveryShortLength) {
    std::mt19937 random(4648);
    for (size_t len = 0; len <= 100; ++len) {
        std::string bytes(len, '\0');
        for (auto& b : bytes) b = static_cast<char>(random());
        std::string decoded;
        ASSERT_EQ(decode(base64(bytes), decoded), OX_OK) << "length " << len;
        EXPECT_EQ(decoded, bytes) << "length " << len;
    }
}

TEST_F(Base64, UsesWholeAlphabetIncludingPlusAndSlash) {
    EXPECT_EQ(base64(bytesFromHex("fbff")), "+/8=");
    std::string bytes;
    ASSERT_EQ(decode("+/8=", bytes), OX_OK);
    EXPECT_EQ(bytes, bytesFromHex("fbff"));
}

TEST_F(Base64, RejectsMalformedTextLeavingOutputsAlone) {
    constexpr std::string_view kMalformed[] = {
        "Zg=",       // not a multiple of four
        "Zg",        // padding left out
        "Zg=a",      // padding before a digit
        "Z===",      // more padding than a group can have
        "Zm9v====",  // a group of padding only
        "=Zm9",      // padding first
        "Zh==",      // unused bits not zero
        "Zm9=",      // unused bits not zero
        "Zm 9v",     // white space
        "Zm9v\n",    // line break
        "Zm-v",      // URL-safe alphabet
        "Zm_v",
        std::string_view("Zm\0v", 4),
        "Zm9v\xc3\xa9=="};
    for (std::string_view text : kMalformed) {
        uint8_t out[16];
        std::memset(out, 0x5a, sizeof out);
        size_t len = 777;
        EXPECT_EQ(wc->base64Decode(text.data(), text.size(), out, sizeof out, &len), OX_BASE64_MALFORMED)
            << testing::PrintToString(std::string(text));
        EXPECT_EQ(len, 777u);
        EXPECT_EQ(out[0], 0x5a);
    }
}

TEST_F(Base64, ReportsNeededLengthWhenEncodeBufferIsShort) {
    char out[8];
    std::memset(out, '#', sizeof out);
    size_t len = 0;
    EXPECT_EQ(wc->base64Encode("foobar", 6, out, 7, &len), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(len, 8u);
    EXPECT_EQ(out[0], '#');
    EXPECT_EQ(wc->base64Encode("foobar", 6, nullptr, 0, &len), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(len, 8u);
    ASSERT_EQ(wc->base64Encode("foobar", 6, out, 8, &len), OX_OK);
    EXPECT_EQ(std::string_view(out, len), "Zm9vYmFy");
}

TEST_F(Base64, ReportsNeededLengthWhenDecodeBufferIsShort) {
    uint8_t out[6];
    size_t len = 0;
    EXPECT_EQ(wc->base64Decode("Zm9vYmE=", 8, out, 4, &len), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(len, 5u);
    ASSERT_EQ(wc->base64Decode("Zm9vYmE=", 8, out, 5, &len), OX_OK);
    EXPECT_EQ(std::string_view(reinterpret_cast<char*>(out), len), "fooba");
}

class Base64String : public WebClientTest {
protected:
    void SetUp() override {
        WebClientTest::SetUp();
        ASSERT_TRUE(oxstring) << "the oxstring service did not load";
    }
    oxtest::Service<OXStringExt_S> oxstring{"oxstring"};
    oxtest::TestPool pool;
};

TEST_F(Base64String, MakesSameTextAsBufferForLongInput) {
    std::string bytes(5000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + 3);
    OXU8String* s = nullptr;
    ASSERT_EQ(wc->base64EncodeU8(oxstring.get(), pool, bytes.data(), bytes.size(), &s), OX_OK);
    EXPECT_EQ(std::string_view(s->stg, s->len), base64(bytes));
    EXPECT_EQ(s->stg[s->len], '\0');
    s->instance.destroy(s);
}

TEST_F(Base64String, MakesEmptyStringForNoBytes) {
    OXU8String* s = nullptr;
    ASSERT_EQ(wc->base64EncodeU8(oxstring.get(), pool, nullptr, 0, &s), OX_OK);
    EXPECT_EQ(s->len, 0u);
    s->instance.destroy(s);
}

TEST_F(Base64String, ReleasesPartialStringWhenPoolRunsOut) {
    std::string bytes(5000, 'x');
    for (int64_t allowed = 0; allowed < 6; ++allowed) {
        OXU8String* s = nullptr;
        oxPoolFailAfter(pool, allowed);
        OXStatus st = wc->base64EncodeU8(oxstring.get(), pool, bytes.data(), bytes.size(), &s);
        oxPoolFailAfter(pool, -1);
        if (st == OX_OK) {
            s->instance.destroy(s);
            continue;
        }
        EXPECT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(s, nullptr);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after " << allowed << " allocations";
    }
}

// ---- hexadecimal

using HexText = WebClientTest;

TEST_F(HexText, WritesTwoLowerCaseDigitsPerByte) {
    const uint8_t bytes[] = {0x00, 0x01, 0x7f, 0xab, 0xff};
    char out[10];
    size_t len = 0;
    ASSERT_EQ(wc->hexLower(bytes, sizeof bytes, out, sizeof out, &len), OX_OK);
    EXPECT_EQ(std::string_view(out, len), "00017fabff");
}

TEST_F(HexText, ReportsNeededLengthWhenBufferIsShort) {
    const uint8_t bytes[OX_SHA256_LEN] = {};
    char out[2 * OX_SHA256_LEN];
    size_t len = 0;
    EXPECT_EQ(wc->hexLower(bytes, sizeof bytes, out, sizeof out - 1, &len), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(len, 2u * OX_SHA256_LEN);
}

}  // namespace
