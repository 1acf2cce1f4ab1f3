// Digests and byte encodings of the web client service, checked against published vectors.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "ox/webclient.h"
#include "testhost.h"

namespace {

std::string hexOf(const void* data, size_t len) {
    std::string text;
    for (size_t i = 0; i < len; ++i) {
        const auto b = static_cast<const uint8_t*>(data)[i];
        text += "0123456789abcdef"[b >> 4];
        text += "0123456789abcdef"[b & 0xf];
    }
    return text;
}

std::string bytesFromHex(std::string_view hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    return bytes;
}

class WebClientTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(wc && oxstring) << "services did not load"; }

    std::string sha256(std::string_view data) {
        uint8_t d[OX_SHA256_LEN];
        EXPECT_EQ(wc->sha256(data.data(), data.size(), d), OX_OK);
        return hexOf(d, sizeof d);
    }
    // The streaming digest of data given in pieces of the given size.
    std::string sha256InPieces(std::string_view data, size_t piece) {
        OXSha256_S* ctx = nullptr;
        EXPECT_EQ(wc->sha256Init(pool, &ctx), OX_OK);
        for (size_t at = 0; at < data.size(); at += piece)
            EXPECT_EQ(ctx->update(ctx, data.data() + at, std::min(piece, data.size() - at)), OX_OK);
        uint8_t d[OX_SHA256_LEN];
        EXPECT_EQ(ctx->final(ctx, d), OX_OK);
        EXPECT_EQ(ctx->generic.destroy(ctx), OX_OK);
        return hexOf(d, sizeof d);
    }
    std::string hmac(std::string_view key, std::string_view data) {
        uint8_t mac[OX_SHA256_LEN];
        EXPECT_EQ(wc->hmacSha256(key.data(), key.size(), data.data(), data.size(), mac), OX_OK);
        return hexOf(mac, sizeof mac);
    }
    std::string base64(std::string_view data) {
        std::string text(data.size() / 3 * 4 + 4, '\0');
        size_t len = 0;
        EXPECT_EQ(wc->base64Encode(data.data(), data.size(), text.data(), text.size(), &len), OX_OK);
        return text.substr(0, len);
    }
    OXStatus decode(std::string_view text, std::string& bytes) {
        std::string out(text.size(), '\0');
        size_t len = 0;
        auto* bytesOut = reinterpret_cast<uint8_t*>(out.data());
        OXStatus st = wc->base64Decode(text.data(), text.size(), bytesOut, out.size(), &len);
        if (st == OX_OK) bytes.assign(out, 0, len);
        return st;
    }

    oxtest::Service<OXWebClient_S> wc{"webclient"};
    oxtest::Service<OXStringExt_S> oxstring{"oxstring"};
    oxtest::TestPool pool;
};

// ---- SHA-256 (FIPS 180-2 appendix B) and MD5 (RFC 1321 appendix A.5)

constexpr std::string_view kEmptySha256 = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr std::string_view k448Bits = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
constexpr std::string_view k448BitsSha256 = "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1";

TEST_F(WebClientTest, Sha256MatchesPublishedVectorsOneShotAndInAnyPieces) {
    EXPECT_EQ(sha256(""), kEmptySha256);
    EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256(k448Bits), k448BitsSha256);
    EXPECT_EQ(sha256InPieces(std::string(1000000, 'a'), 997),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    EXPECT_EQ(sha256InPieces("", 1), kEmptySha256);
    for (size_t piece = 1; piece <= k448Bits.size(); ++piece)
        EXPECT_EQ(sha256InPieces(k448Bits, piece), k448BitsSha256) << piece;
    uint8_t d[OX_SHA256_LEN];
    ASSERT_EQ(wc->sha256(nullptr, 0, d), OX_OK);
    EXPECT_EQ(hexOf(d, sizeof d), kEmptySha256);
    EXPECT_EQ(wc->sha256(nullptr, 3, d), OX_INVALID_ARGUMENT);
}

TEST_F(WebClientTest, Sha256StreamStartsAfreshAfterFinalAndFailsCleanlyWithoutMemory) {
    OXSha256_S* ctx = nullptr;
    ASSERT_EQ(wc->sha256Init(pool, &ctx), OX_OK);
    uint8_t d[OX_SHA256_LEN];
    ASSERT_EQ(ctx->update(ctx, "xyz", 3), OX_OK);
    ASSERT_EQ(ctx->final(ctx, d), OX_OK);
    ASSERT_EQ(ctx->update(ctx, "abc", 3), OX_OK);
    ASSERT_EQ(ctx->final(ctx, d), OX_OK);
    EXPECT_EQ(hexOf(d, sizeof d), sha256("abc"));
    ctx->generic.destroy(ctx);
    ctx = nullptr;
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(wc->sha256Init(pool, &ctx), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(ctx, nullptr);
}

TEST_F(WebClientTest, Md5MatchesRfc1321TestSuite) {
    const std::pair<std::string_view, std::string_view> vectors[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [text, digest] : vectors) {
        uint8_t d[OX_MD5_LEN];
        ASSERT_EQ(wc->md5(text.data(), text.size(), d), OX_OK);
        EXPECT_EQ(hexOf(d, sizeof d), digest) << text;
    }
}

// ---- HMAC-SHA256 (RFC 4231 section 4)

TEST_F(WebClientTest, HmacSha256MatchesRfc4231Vectors) {
    const std::string aa131(131, '\xaa');
    const struct {
        std::string key, data;
        std::string_view mac;  // case 5 is published truncated to 128 bits
    } vectors[] = {
        {std::string(20, '\x0b'), "Hi There", "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {"Jefe", "what do ya want for nothing?", "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {std::string(20, '\xaa'), std::string(50, '\xdd'),
         "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
        {bytesFromHex("0102030405060708090a0b0c0d0e0f10111213141516171819"), std::string(50, '\xcd'),
         "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
        {std::string(20, '\x0c'), "Test With Truncation", "a3b6167473100ee06e0c796c2955552b"},
        {aa131, "Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {aa131,
         "This is a test using a larger than block-size key and a larger than block-size data. The key needs to be "
         "hashed before being used by the HMAC algorithm.",
         "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
        {"", "", "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad"},
    };
    for (const auto& v : vectors) EXPECT_EQ(hmac(v.key, v.data).substr(0, v.mac.size()), v.mac) << v.data;
}

// The chain a request signature's key comes from, with the published example's inputs.
TEST_F(WebClientTest, HmacSha256ChainsIntoSignatureV4SigningKey) {
    std::string key = "AWS4wJalrXUtnFEMI/K7MDENG+bPxRfiCYEXAMPLEKEY";
    for (std::string_view step : {"20120215", "us-east-1", "iam", "aws4_request"}) key = bytesFromHex(hmac(key, step));
    EXPECT_EQ(hexOf(key.data(), key.size()), "f4780e2d9f65fa895f9c67b32ce1baf0b0d8a43505a000a1a9e090d414db404d");
}

// ---- Base64 (RFC 4648 section 10) and hexadecimal

TEST_F(WebClientTest, Base64EncodesAndDecodesPublishedVectors) {
    const std::pair<std::string, std::string_view> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xfb\xff", "+/8="}};
    for (const auto& [bytes, text] : vectors) {
        EXPECT_EQ(base64(bytes), text);
        std::string back;
        EXPECT_EQ(decode(text, back), OX_OK) << text;
        EXPECT_EQ(back, bytes);
    }
    std::mt19937 random(4648);
    for (size_t len = 0; len <= 100; ++len) {
        std::string bytes(len, '\0'), back;
        for (auto& b : bytes) b = static_cast<char>(random());
        ASSERT_EQ(decode(base64(bytes), back), OX_OK) << "length " << len;
        EXPECT_EQ(back, bytes) << "length " << len;
    }
}

TEST_F(WebClientTest, Base64RejectsMalformedTextLeavingOutputsAlone) {
    constexpr std::string_view kMalformed[] = {
        "Zg=",   "Zg",    "Zg=a",   "Z===",   "Zm9v====", "=Zm9", "Zh==" /* unused bits set */, "Zm9=",
        "Zm 9v", "Zm9v\n", "Zm-v" /* URL-safe alphabet */, "Zm_v", std::string_view("Zm\0v", 4), "Zm9v\xc3\xa9=="};
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

TEST_F(WebClientTest, EncodersReportTheNeededLengthWhenTheBufferIsShort) {
    char out[64];
    std::memset(out, '#', sizeof out);
    size_t len = 0;
    EXPECT_EQ(wc->base64Encode("foobar", 6, out, 7, &len), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(len, 8u);
    EXPECT_EQ(out[0], '#');
    EXPECT_EQ(wc->base64Encode("foobar", 6, nullptr, 0, &len), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(len, 8u);
    uint8_t bytes[6];
    EXPECT_EQ(wc->base64Decode("Zm9vYmE=", 8, bytes, 4, &len), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(len, 5u);
    ASSERT_EQ(wc->base64Decode("Zm9vYmE=", 8, bytes, 5, &len), OX_OK);
    EXPECT_EQ(std::string_view(reinterpret_cast<char*>(bytes), len), "fooba");
    const uint8_t raw[] = {0x00, 0x01, 0x7f, 0xab, 0xff};
    EXPECT_EQ(wc->hexLower(raw, sizeof raw, out, 9, &len), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(len, 10u);
    ASSERT_EQ(wc->hexLower(raw, sizeof raw, out, 10, &len), OX_OK);
    EXPECT_EQ(std::string_view(out, len), "00017fabff");
}

TEST_F(WebClientTest, Base64StringMatchesTheBufferFormAndReleasesAllWhenThePoolRunsOut) {
    std::string bytes(5000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + 3);
    OXStatus st = OX_NO_MEMORY;
    for (int64_t allowed = 0; allowed < 8 && st != OX_OK; ++allowed) {
        OXU8String* s = nullptr;
        oxPoolFailAfter(pool, allowed);
        st = wc->base64EncodeU8(oxstring.get(), pool, bytes.data(), bytes.size(), &s);
        oxPoolFailAfter(pool, -1);
        ASSERT_TRUE(st == OX_OK || (st == OX_NO_MEMORY && !s && pool->blocksInUse(pool) == 0)) << allowed;
        if (!s) continue;
        EXPECT_EQ(std::string_view(s->stg, s->len), base64(bytes));
        EXPECT_EQ(s->stg[s->len], '\0');
        s->instance.destroy(s);
    }
    EXPECT_EQ(st, OX_OK);
}

}  // namespace
