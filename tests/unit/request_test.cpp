// Request construction: the headers every request carries, virtual-hosted and path-style
// addressing (TLS, a plain-HTTP proxy, path prefixes, the test region, another endpoint), the
// path sent beside the path signed, Range, and requests to other AWS services.
#include <gtest/gtest.h>

#include <string>

#include "connfixture.h"
#include "oxs3encode.h"
#include "oxs3request.h"

namespace {

using oxtest::Connection;
using oxtest::Dictionary;
using oxtest::entryText;

enum class Where { aws, test, prefixed, rootPrefix };
enum class Proxy { none, plain, tls };

struct AddressCase {
    const char* name;
    Where where;
    bool tls;
    Proxy proxy;
    const char* bucket;
    const char* path;
    const char* host;
    const char* requestPath;
};

const AddressCase kAddressCases[] = {
    {"TlsLowerCasesTheBucketHost", Where::aws, true, Proxy::none, "My.Bucket", "/k", "my.bucket.s3.amazonaws.com",
     "/k"},
    {"PlainThroughHttpProxyIsPathStyle", Where::aws, false, Proxy::plain, "MyBucket", "/k", "s3.amazonaws.com",
     "/MyBucket/k"},
    {"TlsThroughProxyStaysVirtual", Where::aws, true, Proxy::tls, "MyBucket", "/k", "mybucket.s3.amazonaws.com", "/k"},
    {"HttpsProxyDoesNotCarryPlainRequests", Where::aws, false, Proxy::tls, "b", "/k", "b.s3.amazonaws.com", "/k"},
    {"TestRegionNeverNamesTheBucket", Where::test, false, Proxy::none, "b", "/k", "localhost:9194", "/k"},
    {"PathPrefixGetsItsSlashes", Where::prefixed, false, Proxy::none, "MyBucket", "/k", "mybucket.store.example:9000",
     "/s3api/MyBucket/k"},
    {"RootPrefixIsPathStyle", Where::rootPrefix, true, Proxy::none, "b", "/d/k", "b.store.example", "/b/d/k"},
};

class Request : public oxtest::ConnectionFixture {
protected:
    Connection connectTo(Where where, bool tls) {
        switch (where) {
            case Where::test: return connect(Test_Region, tls);
            case Where::prefixed: return connect(addRegion("pfx", "store.example", 9000, "s3api"), tls);
            case Where::rootPrefix: return connect(addRegion("root", "store.example", 9000, "/"), tls);
            case Where::aws: break;
        }
        return connect(US_Standard_Region, tls);
    }
    static void setProxy(OXS3Connection c, Proxy proxy) {
        if (proxy == Proxy::none) return;
        HTConnection h = c->htConnection;
        ASSERT_EQ(h->setProxyU8(h, "proxy.example", 13, 3128, nullptr, 0, nullptr, 0,
                                proxy == Proxy::plain ? OX_PROXY_HTTP : OX_PROXY_HTTPS),
                  OX_OK);
    }
    Dictionary build(OXS3Connection c, const char* bucket, const char* path, HTConnection http = nullptr,
                     const s3::RequestTarget* target = nullptr) {
        Dictionary headers;
        EXPECT_EQ(s3::startRequest(c, http, target, "GET", path, bucket, nullptr, s3::kEmptyPayloadHash, 0,
                                   headers.out(), oxtest::kExampleTime),
                  OX_OK);
        return headers;
    }
};

class Addressing : public Request, public ::testing::WithParamInterface<AddressCase> {};

TEST_P(Addressing, ChoosesHostAndPath) {
    const AddressCase& c = GetParam();
    Connection conn = connectTo(c.where, c.tls);
    ASSERT_TRUE(conn);
    setProxy(conn.get(), c.proxy);
    Dictionary headers = build(conn.get(), c.bucket, c.path);
    ASSERT_TRUE(headers);
    EXPECT_EQ(entryText(headers.get(), "Host"), c.host);
    EXPECT_EQ(oxtest::stringText(conn->requestPath), c.requestPath);
}

INSTANTIATE_TEST_SUITE_P(Cases, Addressing, ::testing::ValuesIn(kAddressCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Request, CarriesTheDateAndStandardHeaders) {
    Connection c = connect(US_Standard_Region, true);
    Dictionary headers;
    ASSERT_EQ(s3::startRequest(c.get(), nullptr, nullptr, "PUT", "/k", "b", nullptr, "abc", 1234, headers.out(),
                               oxtest::kExampleTime),
              OX_OK);
    EXPECT_EQ(entryText(headers.get(), "Date"), "Fri, 24 May 2013 00:00:00 GMT");
    EXPECT_EQ(entryText(headers.get(), "x-amz-date"), "20130524T000000Z");
    EXPECT_EQ(entryText(headers.get(), "Content-Length"), "1234");
    EXPECT_EQ(entryText(headers.get(), "x-amz-content-sha256"), "abc");
    EXPECT_EQ(entryText(headers.get(), "x-amz-security-token"), "<none>");
    EXPECT_EQ(headers->count, 7) << "Date, x-amz-date, Accept, Content-Length, hash, Host, Authorization";
}

TEST_F(Request, SignsTheUnencodedPathAndSendsTheEncodedOne) {
    Connection c = connect(US_Standard_Region, true);
    ext->showAuthCalc = OX_TRUE;
    ::testing::internal::CaptureStderr();
    Dictionary headers = build(c.get(), "b", "/a b/c-d_e.txt");
    const std::string dump = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(dump.find("canonicalRequest:\nGET\n/a%20b/c-d_e.txt\n\n"), std::string::npos) << dump;
    EXPECT_EQ(oxtest::stringText(c->requestPath), "/a%20b/c%2Dd%5Fe.txt");
}

TEST_F(Request, AnotherEndpointOrTargetGivesTheHost) {
    Connection c = connect(US_Standard_Region, false);
    setProxy(c.get(), Proxy::plain);
    OXWebClient_S* wc = s3::webClient(ext);
    HTConnection other = nullptr;
    ASSERT_EQ(wc->createConnection(wc, pool, "b.s3-accelerate.amazonaws.com", 80, OX_FALSE, nullptr, &other), OX_OK);
    s3::Owned<HTConnection_S> held(other);
    Dictionary headers = build(c.get(), "b", "/k", other);
    EXPECT_EQ(entryText(headers.get(), "Host"), "b.s3-accelerate.amazonaws.com");
    EXPECT_EQ(oxtest::stringText(c->requestPath), "/k");
    const s3::RequestTarget target{other, {}};
    headers = build(c.get(), "b", "/k", nullptr, &target);
    EXPECT_EQ(entryText(headers.get(), "Host"), "b.s3-accelerate.amazonaws.com");
    EXPECT_EQ(oxtest::stringText(c->requestPath), "/b/k") << "a target leaves the path to the proxy rule";
}

TEST_F(Request, RangeNamesTheLastByteInclusively) {
    Dictionary headers;
    ASSERT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, 0, headers.out()), OX_OK);
    ASSERT_EQ(s3::requestSetRange(headers.get(), "", 0, 100), OX_OK);
    ASSERT_EQ(s3::requestSetRange(headers.get(), "x-amz-copy-source-range", 5242880, 5242880), OX_OK);
    EXPECT_EQ(entryText(headers.get(), "Range"), "bytes=0-99");
    EXPECT_EQ(entryText(headers.get(), "x-amz-copy-source-range"), "bytes=5242880-10485759");
}

TEST_F(Request, ServiceRequestPostsASignedFormOverTlsThroughTheSameProxies) {
    Connection c = connect(US_Standard_Region, false, "tok");
    setProxy(c.get(), Proxy::plain);
    Dictionary headers, query;
    ASSERT_EQ(s3::createRequest(c.get(), nullptr, nullptr, nullptr, nullptr, headers.out(), oxtest::kExampleTime),
              OX_OK);
    s3::ServiceRequest sts{"sts.amazonaws.com", "sts", "us-east-1", "post", "/", nullptr, {}, 0};
    oxtest::U8String body;
    HTConnection http = nullptr;
    EXPECT_EQ(s3::buildRequestForService(c.get(), sts, headers.get(), body.out(), &http), OX_INVALID_ARGUMENT);

    ASSERT_EQ(s3::newQueryU8(ext, pool, "Action", "GetCallerIdentity", query.out()), OX_OK);
    ASSERT_EQ(s3::querySetU8(query.get(), "Version", "2011-06-15"), OX_OK);
    sts.query = query.get();
    ASSERT_EQ(s3::buildRequestForService(c.get(), sts, headers.get(), body.out(), &http), OX_OK);
    s3::Owned<HTConnection_S> held(http);
    EXPECT_EQ(oxtest::stringText(body.get()), "Action=GetCallerIdentity&Version=2011-06-15");
    EXPECT_EQ(entryText(headers.get(), "Content-Length"), "43");
    EXPECT_EQ(entryText(headers.get(), "Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(entryText(headers.get(), "x-amz-content-sha256"),
              "ab821ae955788b0e33ebd34c208442ccfc2d406e2edc5e7a39bd6458fbb4f843");
    EXPECT_EQ(entryText(headers.get(), "serviceName"), "<none>");
    EXPECT_NE(entryText(headers.get(), "Authorization")
                  .find("/us-east-1/sts/aws4_request,SignedHeaders=content-type;host;x-amz-content-sha256;"
                        "x-amz-date;x-amz-security-token,"),
              std::string::npos);
    EXPECT_STREQ(http->host, "sts.amazonaws.com");
    EXPECT_EQ(http->port, 443);
    EXPECT_TRUE(http->useSSL);
    EXPECT_EQ(oxtest::stringText(http->httpProxy.host), "proxy.example");
}

}  // namespace
