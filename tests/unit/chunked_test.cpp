// Chunked puts without a server: the encoded length against the framing it announces, and the
// body a put writes, chunk by chunk, checked byte for byte against AWS's streaming example
// (66560 bytes of 'a' in 64 KiB chunks, signed 20130524T000000Z).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "connfixture.h"
#include "oxs3chunked.h"

namespace {

using oxtest::Connection;

// The framing written out naively: what the formula must agree with.
uint64_t framedLength(uint64_t total, uint64_t chunkSize) {
    if (chunkSize == 0) chunkSize = s3::kDefaultChunkSize;
    uint64_t length = 1 + 17 + 64 + 4;  // the end chunk
    for (uint64_t left = total; left > 0;) {
        const uint64_t n = left < chunkSize ? left : chunkSize;
        length += s3::hexDigits(n) + 17 + 64 + 2 + n + 2;
        left -= n;
    }
    return length;
}

struct LengthCase {
    uint64_t total, chunkSize;
    int32_t count;
    uint64_t size, finalSize;
};

class EncodedLength : public ::testing::TestWithParam<LengthCase> {};

TEST_P(EncodedLength, AgreesWithTheFramingWrittenOut) {
    const LengthCase& c = GetParam();
    const s3::ChunkPlan plan = s3::planChunks(c.total, c.chunkSize);
    EXPECT_EQ(plan.count, c.count);
    EXPECT_EQ(plan.size, c.size);
    EXPECT_EQ(plan.finalSize, c.finalSize);
    EXPECT_EQ(s3::encodedLength(plan), framedLength(c.total, c.chunkSize));
}

INSTANTIATE_TEST_SUITE_P(Plans, EncodedLength,
                         ::testing::Values(LengthCase{1, 8192, 1, 1, 0},             // one byte
                                           LengthCase{24576, 8192, 3, 8192, 0},      // exact multiple
                                           LengthCase{20000, 0, 3, 8192, 3616},      // default chunk size
                                           LengthCase{66560, 65536, 2, 65536, 1024}, // AWS's example
                                           LengthCase{16, 15, 2, 15, 1}));           // size texts of one digit

// ---- the body written, through an HTTP connection that records it

std::string sent;

OXStatus recordData(HTConnection, const void* data, OXMemSize length) {
    sent.append(static_cast<const char*>(data), length);
    return OX_OK;
}
OXStatus noClose(HTConnection) { return OX_OK; }
OXStatus answerOk(HTConnection, HTTPStatus* status) {
    *status = {OX_HTTP_OK, 200, "OK"};
    return OX_OK;
}
OXStatus noBody(HTConnection, OX_POOL_S*, void** data, OXMemSize* length) {
    *data = nullptr;
    *length = 0;
    return OX_END_OF_DATA;
}

const std::string kSeed = "4f232c4386841ef735655705268965c44a0e4690baa4adea153f7db9fa80a0a9";

std::string awsExampleBody() {
    return "10000;chunk-signature=ad80c730a21e5b8d04586a2213dd63b9a0e99e0e2307b0ade35a65485a288648\r\n" +
           std::string(65536, 'a') +
           "\r\n400;chunk-signature=0055627c9e194cb4542bae2aa5492e3c1575bbb81b612b7d234b86a503ef5497\r\n" +
           std::string(1024, 'a') +
           "\r\n0;chunk-signature=b6c6ea8a5354eaf15b3cb7646744f4275b71ea724fed81ceb9323e279d449df9\r\n\r\n";
}

class ChunkedBody : public oxtest::ConnectionFixture {
protected:
    HTConnection_S http{};
    Connection c;
    const std::string data = std::string(66560, 'a');

    void SetUp() override {
        ConnectionFixture::SetUp();
        sent.clear();
        http.sendData = recordData;
        http.close = noClose;
        http.readResponse = answerOk;
        http.readData = noBody;
        c = connect(US_Standard_Region, true);
        ASSERT_EQ(s3::attachChunkInformation(c.get(), s3::planChunks(66560, 65536), oxtest::kExampleTime, &http,
                                             false, kSeed, "us-east-1"),
                  OX_OK);
    }
    OXStatus feed(size_t piece, size_t total) {
        for (size_t at = 0; at < total; at += piece) {
            const size_t n = std::min(piece, total - at);
            if (OXStatus st = c->putChunk(c.get(), data.data() + at, n); st != OX_OK) return st;
        }
        return OX_OK;
    }
};

TEST_F(ChunkedBody, ChainsEverySignatureFromTheSeedWhateverThePieces) {
    for (size_t piece : {size_t{66560}, size_t{65537}, size_t{1}}) {
        if (piece != 66560) {
            sent.clear();
            ASSERT_EQ(s3::attachChunkInformation(c.get(), s3::planChunks(66560, 65536), oxtest::kExampleTime, &http,
                                                 false, kSeed, "us-east-1"),
                      OX_OK);
        }
        ASSERT_EQ(feed(piece, data.size()), OX_OK) << "pieces of " << piece;
        ASSERT_EQ(c->finishChunkedPut(c.get()), OX_OK);
        EXPECT_EQ(sent, awsExampleBody()) << "pieces of " << piece;
        EXPECT_EQ(sent.size(), 66824u) << "AWS's Content-Length";
        EXPECT_EQ(c->activeChunk, nullptr);
    }
}

TEST_F(ChunkedBody, RefusesMoreDataThanAnnouncedOrAnEarlyFinishAndDropsThePut) {
    ASSERT_EQ(feed(4096, data.size()), OX_OK);
    const char extra = 'a';
    EXPECT_EQ(c->putChunk(c.get(), &extra, 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->activeChunk, nullptr);
    EXPECT_EQ(c->putChunk(c.get(), &extra, 1), OX_INVALID_ARGUMENT) << "no put left to feed";

    sent.clear();
    ASSERT_EQ(s3::attachChunkInformation(c.get(), s3::planChunks(66560, 65536), oxtest::kExampleTime, &http, false,
                                         kSeed, "us-east-1"),
              OX_OK);
    ASSERT_EQ(feed(1000, 65536), OX_OK);
    EXPECT_EQ(c->finishChunkedPut(c.get()), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->activeChunk, nullptr);
    EXPECT_EQ(c->finishChunkedPut(c.get()), OX_INVALID_ARGUMENT) << "nothing started";
    EXPECT_EQ(sent.find("\r\n0;chunk-signature"), std::string::npos) << "no end chunk for a short put";
}

}  // namespace
