// The web client's HTTP connections against the real RADOS Gateway, over plain HTTP and TLS:
// anonymous reads of public objects, ranges, HEAD, keep-alive, status mapping and 100-continue.
#include <gtest/gtest.h>

#include <string>

#include "faultserver.h"
#include "httptest.h"
#include "publicbucket.h"
#include "s3env.h"
#include "testcert.h"

namespace {

using oxtest::PublicBuckets;

class HttpGateway : public oxtest::HttpTest {
protected:
    const oxtest::S3Env& env = oxtest::requireS3Env();
    const PublicBuckets& buckets = oxtest::publicBuckets();

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(env) << "the S3 server is required";
        ASSERT_TRUE(buckets) << buckets.error;
    }

    std::string openObject(const std::string& key) const { return "/" + buckets.open + "/" + key; }

    OXStatus get(HTConnection c, const std::string& path, oxtest::Headers* h, HTTPStatus* st) {
        OXStatus s = c->sendRequest(c, httpGet, path.data(), path.size(), nullptr, 0, h ? h->get() : nullptr, -1,
                                    nullptr, 0, OX_FALSE);
        return s == OX_OK ? c->readResponse(c, st) : s;
    }
};

class HttpGatewayBoth : public HttpGateway, public ::testing::WithParamInterface<bool> {
protected:
    oxtest::TlsOptions opts;
    oxtest::HttpConnection conn;

    void SetUp() override {
        HttpGateway::SetUp();
        if (HasFatalFailure()) return;
        if (GetParam()) {
            opts = tlsOptions({{OX_SSL_CAFILE, env.tlsCaFile}});
            conn = connect("localhost", static_cast<uint16_t>(env.tlsPort), true, opts.get());
        } else {
            conn = connect(env.host, static_cast<uint16_t>(env.port));
        }
        ASSERT_TRUE(conn);
    }
    HTConnection c() const { return conn.get(); }
};

INSTANTIATE_TEST_SUITE_P(Scheme, HttpGatewayBoth, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Tls" : "Plain"; });

TEST_P(HttpGatewayBoth, ListsBucketsAnonymouslyAsXml) {
    auto r = oxtest::exchange(c(), httpGet, "/");
    ASSERT_EQ(r.sendStatus, OX_OK);
    ASSERT_EQ(r.readStatus, OX_OK);
    EXPECT_EQ(r.status.message, OX_HTTP_OK);
    EXPECT_EQ(r.body.rfind("<?xml", 0), 0u) << r.body;
    EXPECT_NE(r.body.find("ListAllMyBucketsResult"), std::string::npos);
}

TEST_P(HttpGatewayBoth, ReadsAPublicObject) {
    auto r = oxtest::exchange(c(), httpGet, openObject(PublicBuckets::kSmallKey));
    EXPECT_EQ(r.status.message, OX_HTTP_OK);
    EXPECT_EQ(r.body, PublicBuckets::kSmallText);
    EXPECT_EQ(c()->responseContentLength, static_cast<int64_t>(std::string(PublicBuckets::kSmallText).size()));
    EXPECT_NE(oxtest::responseHeader(c(), "etag"), "<none>");
}

TEST_P(HttpGatewayBoth, KeepsOneSocketAcrossManyRequests) {
    double last = 0;
    for (int i = 1; i <= 25; ++i) {
        auto r = oxtest::exchange(c(), httpGet, openObject(PublicBuckets::kSmallKey));
        ASSERT_EQ(r.body, PublicBuckets::kSmallText) << "request " << i;
        EXPECT_EQ(c()->requestCount, i) << "a new socket was opened";
        EXPECT_GE(c()->lastActivityTime, last);
        last = c()->lastActivityTime;
    }
}

TEST_P(HttpGatewayBoth, ReadsARangeStraightIntoTheCallersBuffer) {
    auto h = headers({{"Range", "bytes=1000-4999"}});
    HTTPStatus st{};
    ASSERT_EQ(get(c(), openObject(PublicBuckets::kBigKey), &h, &st), OX_OK);
    EXPECT_EQ(st.message, OX_HTTP_PARTIAL_CONTENT);
    EXPECT_EQ(c()->responseContentLength, 4000);
    std::string buf(4000, '\0');
    OXMemSize got = 0;
    ASSERT_EQ(c()->readInto(c(), buf.data(), buf.size(), &got), OX_OK);
    ASSERT_EQ(got, 4000u);
    for (size_t i = 0; i < buf.size(); ++i) ASSERT_EQ(buf[i], oxtest::patternByte(1000 + i)) << "offset " << i;
    EXPECT_EQ(c()->readInto(c(), buf.data(), buf.size(), &got), OX_END_OF_DATA);
}

TEST_P(HttpGatewayBoth, ReadsALargeObjectInPieces) {
    HTTPStatus st{};
    ASSERT_EQ(get(c(), openObject(PublicBuckets::kBigKey), nullptr, &st), OX_OK);
    OXStatus last;
    std::string body = oxtest::readAllInto(c(), 64 * 1024 + 3, &last);
    EXPECT_EQ(last, OX_END_OF_DATA);
    ASSERT_EQ(body.size(), PublicBuckets::kBigSize);
    for (size_t i = 0; i < body.size(); ++i) ASSERT_EQ(body[i], oxtest::patternByte(i)) << "offset " << i;
}

TEST_P(HttpGatewayBoth, ReadsListingsAlikeInPiecesAndWhole) {
    const std::string listing = "/" + buckets.open;
    auto whole = oxtest::exchange(c(), httpGet, listing);
    ASSERT_EQ(whole.status.message, OX_HTTP_OK);
    HTTPStatus st{};
    ASSERT_EQ(get(c(), listing, nullptr, &st), OX_OK);
    OXStatus last;
    EXPECT_EQ(oxtest::readAllInto(c(), 7, &last), whole.body);
    EXPECT_NE(whole.body.find(PublicBuckets::kBigKey), std::string::npos);
}

TEST_P(HttpGatewayBoth, HeadAnnouncesTheLengthAndSendsNoBody) {
    auto r = oxtest::exchange(c(), httpHead, openObject(PublicBuckets::kBigKey));
    EXPECT_EQ(r.status.message, OX_HTTP_OK);
    EXPECT_EQ(r.bodyStatus, OX_END_OF_DATA);
    EXPECT_EQ(c()->responseContentLength, static_cast<int64_t>(PublicBuckets::kBigSize));
    EXPECT_EQ(oxtest::exchange(c(), httpGet, openObject(PublicBuckets::kSmallKey)).body, PublicBuckets::kSmallText);
    EXPECT_EQ(c()->requestCount, 2);
}

TEST_P(HttpGatewayBoth, MissingObjectsAndBucketsAreNotFound) {
    auto key = oxtest::exchange(c(), httpGet, openObject("no-such-key"));
    EXPECT_EQ(key.status.message, OX_HTTP_NOT_FOUND);
    EXPECT_NE(key.body.find("NoSuchKey"), std::string::npos) << key.body;
    auto bucket = oxtest::exchange(c(), httpGet, "/oxhttp-no-such-bucket/key");
    EXPECT_EQ(bucket.status.message, OX_HTTP_NOT_FOUND);
    EXPECT_NE(bucket.body.find("NoSuchBucket"), std::string::npos) << bucket.body;
}

TEST_P(HttpGatewayBoth, AnonymousWritesToAPrivateBucketAreForbidden) {
    auto r = oxtest::exchange(c(), httpPut, "/" + buckets.closed + "/k", nullptr, "data");
    EXPECT_EQ(r.status.message, OX_HTTP_FORBIDDEN);
    EXPECT_NE(r.body.find("AccessDenied"), std::string::npos) << r.body;
}

TEST_P(HttpGatewayBoth, RefusesContinueBeforeTheBody) {
    const std::string path = "/" + buckets.closed + "/refused";
    ASSERT_EQ(c()->sendRequest(c(), httpPut, path.data(), path.size(), nullptr, 0, nullptr, 1 << 20, nullptr, 0, OX_TRUE),
              OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.status, 403) << "the gateway refuses before asking for the body";
    EXPECT_EQ(st.message, OX_HTTP_FORBIDDEN);
    EXPECT_TRUE(c()->closeRequired);
    OXStatus bodyStatus;
    oxtest::readAllData(c(), &bodyStatus);
    EXPECT_TRUE(bodyStatus == OX_OK || bodyStatus == OX_END_OF_DATA);
    EXPECT_EQ(oxtest::exchange(c(), httpGet, openObject(PublicBuckets::kSmallKey)).body, PublicBuckets::kSmallText);
}

TEST_P(HttpGatewayBoth, SendsTheBodyOnceTheServerContinues) {
    const std::string path = openObject(GetParam() ? "continued-tls" : "continued-plain");
    std::string data(300 * 1024, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = oxtest::patternByte(i * 3);
    auto readable = headers({{"x-amz-acl", "public-read"}});
    ASSERT_EQ(c()->sendRequest(c(), httpPut, path.data(), path.size(), nullptr, 0, readable.get(),
                               static_cast<int64_t>(data.size()), nullptr, 0, OX_TRUE),
              OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    ASSERT_EQ(st.status, 100);
    for (size_t off = 0; off < data.size(); off += 100000)
        ASSERT_EQ(c()->sendData(c(), data.data() + off, std::min<size_t>(100000, data.size() - off)), OX_OK);
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.message, OX_HTTP_OK);
    OXStatus bodyStatus;
    oxtest::readAllData(c(), &bodyStatus);
    auto back = oxtest::exchange(c(), httpGet, path);
    EXPECT_EQ(back.status.message, OX_HTTP_OK);
    EXPECT_TRUE(back.body == data) << "the object read back differs from what was sent";
    EXPECT_EQ(oxtest::exchange(c(), httpDelete, path).status.message, OX_HTTP_OK);
}

class HttpGatewayTls : public HttpGateway {
protected:
    OXStatus openTls(const std::string& host, std::initializer_list<std::pair<std::string_view, std::string_view>> o) {
        auto opts = tlsOptions(o);
        auto c = connect(host, static_cast<uint16_t>(env.tlsPort), true, opts.get());
        return c->open(c.get());
    }
};

TEST_F(HttpGatewayTls, RefusesTheServerWithoutItsCa) { EXPECT_EQ(openTls("localhost", {}), OX_TLS_CERT_UNTRUSTED); }

TEST_F(HttpGatewayTls, RefusesTheServerWithAnotherCa) {
    auto other = oxtest::makeTestIdentity({"localhost"}, {"127.0.0.1"});
    ASSERT_TRUE(other) << other.error;
    EXPECT_EQ(openTls("localhost", {{OX_SSL_CAFILE, other.caFile}}), OX_TLS_CERT_UNTRUSTED);
}

TEST_F(HttpGatewayTls, AcceptsTheServerWhenVerificationIsOff) {
    auto opts = tlsOptions({{OX_SSL_VERIFYPEER, OX_SSL_FALSE}});
    auto c = connect("localhost", static_cast<uint16_t>(env.tlsPort), true, opts.get());
    EXPECT_EQ(oxtest::exchange(c.get(), httpGet, "/").status.message, OX_HTTP_OK);
}

TEST_F(HttpGatewayTls, VerifiesTheLoopbackAddress) {
    EXPECT_EQ(openTls("127.0.0.1", {{OX_SSL_CAFILE, env.tlsCaFile}}), OX_OK);
}

TEST_F(HttpGatewayTls, RefusesAVirtualHostNameTheCertificateDoesNotCover) {
    EXPECT_EQ(openTls("127.0.0.1", {{OX_SSL_CAFILE, env.tlsCaFile}, {OX_SSL_SNI, "bucket.localhost"}}),
              OX_TLS_HOST_MISMATCH);
    EXPECT_EQ(openTls("127.0.0.1",
                      {{OX_SSL_CAFILE, env.tlsCaFile}, {OX_SSL_SNI, "bucket.localhost"}, {OX_SSL_VERIFYHOST, OX_SSL_FALSE}}),
              OX_OK);
}

}  // namespace
