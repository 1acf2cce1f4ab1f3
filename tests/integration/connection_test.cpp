// Signed requests through the request engine against the real RADOS Gateway, reached through
// custom regions on "localhost": virtual-hosted and path-style addressing, over plain HTTP and
// TLS. The gateway checks every signature, so each answer proves the signer right.
#include <gtest/gtest.h>

#include <string>

#include "bucketfixture.h"
#include "connfixture.h"
#include "ox/secsocket.h"
#include "oxs3request.h"
#include "oxs3send.h"
#include "publicbucket.h"
#include "s3env.h"

namespace {

using oxtest::Connection;

constexpr s3::SendCycleOp kExchange = {"gatewayTest", U"gatewayTest: Request failed with result 0x%x. Retrying."};

struct Reply {
    OXStatus status = OX_FAILED;
    HTTPStatus http{};
    std::string body;
};

struct Mode {
    bool tls;
    bool pathStyle;
};

class Gateway : public oxtest::BucketFixture, public ::testing::WithParamInterface<Mode> {
protected:
    s3::Owned<OXDictionary_S> noQuery;

    Connection gateway(const std::string& secret) {
        const Mode mode = GetParam();
        const char* name = mode.pathStyle ? "rgwpath" : "rgwvhost";
        EXPECT_EQ(ext->addCustomRegion(ext, name, env.vhostDomain.c_str(), static_cast<uint16_t>(env.port),
                                       static_cast<uint16_t>(env.tlsPort), mode.pathStyle ? "/" : nullptr, OX_TRUE,
                                       OX_FALSE, OX_FALSE, OX_FALSE),
                  OX_OK);
        OXStatus st = OX_FAILED;
        Connection c(ext->createConnection(ext, pool, mode.tls, tlsOptions, ext->regionForNameU8(ext, name),
                                           env.accessKey.c_str(), secret.c_str(), nullptr, &st));
        EXPECT_EQ(st, OX_OK);
        return c;
    }

    std::string payloadHash(std::string_view body) {
        uint8_t digest[OX_SHA256_LEN];
        char hex[2 * OX_SHA256_LEN];
        size_t len = 0;
        OXWebClient_S* wc = s3::webClient(ext);
        EXPECT_EQ(wc->sha256(body.data(), body.size(), digest), OX_OK);
        EXPECT_EQ(wc->hexLower(digest, sizeof digest, hex, sizeof hex, &len), OX_OK);
        return std::string(hex, len);
    }

    // One request through the send cycle; the body of an accepted answer is read whole.
    Reply exchange(OXS3Connection c, HTTPMethod method, std::string_view bucket, std::string_view path,
                   std::string_view body = {}, const char* range = nullptr) {
        Reply reply;
        const std::string hash = payloadHash(body);
        reply.status = s3::sendCycle(c, kExchange, [&](s3::Attempt& a) {
            oxtest::Dictionary headers;
            OXStatus st = s3::createRequest(c, nullptr, nullptr, nullptr, nullptr, headers.out(), oxzdtgmt());
            if (st == OX_OK && range) st = headers->setU8ValueU8(headers.get(), "Range", 5, range, strlen(range));
            if (st == OX_OK)
                st = s3::buildRequest(c, a.http, nullptr, headers.get(), s3::methodText(method), bucket, path, nullptr,
                                      hash, body.size());
            if (st == OX_OK)
                st = s3::sendBuiltRequest(a, method, nullptr, headers.get(), static_cast<int64_t>(body.size()),
                                          body.empty() ? nullptr : body.data(), body.size());
            if (st == OX_OK) st = s3::readAnswer(a, reply.http, {OX_HTTP_OK, OX_HTTP_PARTIAL_CONTENT});
            void* data = nullptr;
            OXMemSize length = 0;
            if (st == OX_OK && method != httpHead) st = a.http->readData(a.http, pool, &data, &length);
            reply.body.assign(static_cast<const char*>(data ? data : ""), length);
            if (data) pool->memFree(pool, data);
            return st;
        });
        return reply;
    }
};

TEST_P(Gateway, ListsTheUsersBuckets) {
    Connection c = gateway(env.secretKey);
    ASSERT_TRUE(c);
    const Reply r = exchange(c.get(), httpGet, "", "/");
    ASSERT_EQ(r.status, OX_OK) << r.body;
    EXPECT_NE(r.body.find("<ListAllMyBucketsResult"), std::string::npos) << r.body;
    EXPECT_NE(r.body.find("<ID>" + env.userId + "</ID>"), std::string::npos) << r.body;
}

TEST_P(Gateway, WritesReadsAndDeletesAKeyThatNeedsEncoding) {
    const oxtest::PublicBuckets& buckets = oxtest::publicBuckets();
    ASSERT_TRUE(buckets) << buckets.error;
    Connection c = gateway(env.secretKey);
    ASSERT_TRUE(c);
    const std::string key = std::string("/signed dir/a-b_c~d.e+f") + (GetParam().tls ? "-tls" : "") +
                            (GetParam().pathStyle ? "-path" : "-vhost");
    const std::string text = "signed body\n";
    ASSERT_EQ(exchange(c.get(), httpPut, buckets.open, key, text).status, OX_OK);
    const Reply part = exchange(c.get(), httpGet, buckets.open, key, {}, "bytes=0-5");
    ASSERT_EQ(part.status, OX_OK) << part.body;
    EXPECT_EQ(part.http.message, OX_HTTP_PARTIAL_CONTENT);
    EXPECT_EQ(part.body, "signed");
    EXPECT_EQ(exchange(c.get(), httpDelete, buckets.open, key).status, OX_OK);
    EXPECT_EQ(exchange(c.get(), httpHead, buckets.open, key).http.message, OX_HTTP_NOT_FOUND);
}

TEST_P(Gateway, WrongSecretIsASignatureMismatch) {
    Connection c = gateway("not-the-secret");
    ASSERT_TRUE(c);
    EXPECT_EQ(exchange(c.get(), httpGet, "", "/").status, OXS3_SIGNATURE_DOES_NOT_MATCH);
}

INSTANTIATE_TEST_SUITE_P(Modes, Gateway,
                         ::testing::Values(Mode{false, false}, Mode{false, true}, Mode{true, false}, Mode{true, true}),
                         [](const auto& info) {
                             return std::string(info.param.tls ? "Tls" : "Plain") +
                                    (info.param.pathStyle ? "PathStyle" : "VirtualHosted");
                         });

}  // namespace
