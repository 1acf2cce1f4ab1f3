// The web client's HTTP connections against the real RADOS Gateway, over plain HTTP and TLS:
// anonymous reads of public objects, ranges, HEAD, keep-alive, 100-continue and certificates.
#include <gtest/gtest.h>

#include <string>

#include "httptest.h"
#include "publicbucket.h"
#include "s3env.h"

namespace {

using namespace oxtest;

class HttpGateway : public HttpTest, public ::testing::WithParamInterface<bool> {
protected:
    const S3Env& env = requireS3Env();
    const PublicBuckets& buckets = publicBuckets();
    TlsOptions opts;
    HttpConnection conn;

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(env) << "the S3 server is required";
        ASSERT_TRUE(buckets) << buckets.error;
        if (GetParam()) {
            opts = tlsOptions({{OX_SSL_CAFILE, env.tlsCaFile}});
            conn = connect("localhost", static_cast<uint16_t>(env.tlsPort), true, opts.get());
        } else {
            conn = connect(env.host, static_cast<uint16_t>(env.port));
        }
        ASSERT_TRUE(conn);
    }
    HTConnection c() const { return conn.get(); }
    std::string object(const std::string& key) const { return "/" + buckets.open + "/" + key; }
};

INSTANTIATE_TEST_SUITE_P(Scheme, HttpGateway, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Tls" : "Plain"; });

TEST_P(HttpGateway, ListsAndReadsAnonymouslyOverOneKeptSocket) {
    auto list = exchange(c(), httpGet, "/");
    ASSERT_EQ(list.readStatus, OX_OK);
    EXPECT_EQ(list.status.message, OX_HTTP_OK);
    EXPECT_NE(list.body.find("ListAllMyBucketsResult"), std::string::npos) << list.body;
    auto head = exchange(c(), httpHead, object(PublicBuckets::kBigKey));
    EXPECT_EQ(head.status.message, OX_HTTP_OK);
    EXPECT_EQ(head.bodyStatus, OX_END_OF_DATA);
    EXPECT_EQ(c()->responseContentLength, static_cast<int64_t>(PublicBuckets::kBigSize));
    double last = 0;
    for (int i = 3; i <= 25; ++i) {
        auto r = exchange(c(), httpGet, object(PublicBuckets::kSmallKey));
        ASSERT_EQ(r.body, PublicBuckets::kSmallText) << "request " << i;
        EXPECT_EQ(c()->requestCount, i) << "a new socket was opened";
        EXPECT_GE(c()->lastActivityTime, last);
        last = c()->lastActivityTime;
    }
    EXPECT_NE(responseHeader(c(), "etag"), "<none>");
}

TEST_P(HttpGateway, ReadsRangesLargeObjectsAndListingsIntoTheCallersMemory) {
    auto range = headers({{"Range", "bytes=1000-4999"}});
    HTTPStatus st{};
    ASSERT_EQ(getHead(c(), object(PublicBuckets::kBigKey), &st, range.get()), OX_OK);
    EXPECT_EQ(st.message, OX_HTTP_PARTIAL_CONTENT);
    EXPECT_EQ(c()->responseContentLength, 4000);
    std::string buf(4000, '\0');
    OXMemSize got = 0;
    ASSERT_EQ(c()->readInto(c(), buf.data(), buf.size(), &got), OX_OK);
    ASSERT_EQ(got, 4000u);
    EXPECT_EQ(patternMismatch(buf, 1000), std::string::npos);
    EXPECT_EQ(c()->readInto(c(), buf.data(), buf.size(), &got), OX_END_OF_DATA);

    ASSERT_EQ(getHead(c(), object(PublicBuckets::kBigKey), &st), OX_OK);
    OXStatus last;
    std::string body = readAllInto(c(), 64 * 1024 + 3, &last);
    EXPECT_EQ(last, OX_END_OF_DATA);
    ASSERT_EQ(body.size(), PublicBuckets::kBigSize);
    EXPECT_EQ(patternMismatch(body), std::string::npos);

    const std::string listing = "/" + buckets.open;
    auto whole = exchange(c(), httpGet, listing);
    EXPECT_NE(whole.body.find(PublicBuckets::kBigKey), std::string::npos) << whole.body;
    ASSERT_EQ(getHead(c(), listing, &st), OX_OK);
    EXPECT_EQ(readAllInto(c(), 7, &last), whole.body) << "a chunked or sized listing read in small pieces";
}

TEST_P(HttpGateway, SendsTheBodyOnlyOnceTheServerContinues) {
    const std::string refused = "/" + buckets.closed + "/refused";
    ASSERT_EQ(sendHead(c(), httpPut, refused, 1 << 20, true), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.status, 403) << "the gateway refuses before asking for the body";
    EXPECT_TRUE(c()->closeRequired);
    OXStatus bodyStatus;
    readAllData(c(), &bodyStatus);
    EXPECT_TRUE(bodyStatus == OX_OK || bodyStatus == OX_END_OF_DATA) << std::hex << bodyStatus;

    const std::string path = object(GetParam() ? "continued-tls" : "continued-plain");
    std::string data(300 * 1024, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = patternByte(i * 3);
    auto readable = headers({{"x-amz-acl", "public-read"}});
    ASSERT_EQ(sendHead(c(), httpPut, path, static_cast<int64_t>(data.size()), true, readable.get()), OX_OK);
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    ASSERT_EQ(st.status, 100);
    for (size_t off = 0; off < data.size(); off += 100000)
        ASSERT_EQ(c()->sendData(c(), data.data() + off, std::min<size_t>(100000, data.size() - off)), OX_OK);
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.message, OX_HTTP_OK);
    readAllData(c(), &bodyStatus);
    auto back = exchange(c(), httpGet, path);
    EXPECT_EQ(back.status.message, OX_HTTP_OK);
    EXPECT_TRUE(back.body == data) << "the object read back differs from what was sent";
    EXPECT_EQ(exchange(c(), httpDelete, path).status.message, OX_HTTP_OK);
}

// The gateway's own certificate, made by the start script: the unit tests cover the other ways
// to trust or refuse a server.
using HttpGatewayTls = HttpTest;

TEST_F(HttpGatewayTls, VerifiesTheGatewaysCertificate) {
    const S3Env& env = requireS3Env();
    ASSERT_TRUE(env) << "the S3 server is required";
    const auto open = [&](const char* host, const Fields& options) {
        auto opts = tlsOptions(options);
        auto c = connect(host, static_cast<uint16_t>(env.tlsPort), true, opts.get());
        return c->open(c.get());
    };
    EXPECT_EQ(open("localhost", {}), OX_TLS_CERT_UNTRUSTED);
    EXPECT_EQ(open("127.0.0.1", {{OX_SSL_CAFILE, env.tlsCaFile}}), OX_OK);
    EXPECT_EQ(open("127.0.0.1", {{OX_SSL_CAFILE, env.tlsCaFile}, {OX_SSL_SNI, "bucket.localhost"}}),
              OX_TLS_HOST_MISMATCH);
}

}  // namespace
