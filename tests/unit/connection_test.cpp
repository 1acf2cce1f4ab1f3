// The connection object: creation for built-in and custom regions, clones for worker threads,
// proxies from the environment and their URLs, the error text, and that a creation failing at
// any allocation gives everything back.
#include <gtest/gtest.h>

#include <string>

#include "connfixture.h"
#include "oxs3connection.h"
#include "oxs3encrypt.h"

namespace {

using oxtest::Connection;
using oxtest::stringText;

std::string utf8(std::u32string_view text) {
    std::string out(text.size() * 4, '\0');
    size_t len = 0;
    const auto* chars = reinterpret_cast<const OXChar*>(text.data());
    EXPECT_EQ(oxzsU32ToU8(chars, text.size(), out.data(), out.size(), &len), OX_OK);
    out.resize(len);
    return out;
}

class ConnectionTest : public oxtest::ConnectionFixture {
protected:
    Connection create(AWSRegion region, OXStatus* st, bool tls = false) {
        return Connection(ext->createConnection(ext, pool, tls, nullptr, region, "id", "secret", nullptr, st));
    }
};

TEST_F(ConnectionTest, TestRegionHasItsEndpointAndUnknownRegionsGiveNoConnection) {
    Connection c = connect(Test_Region, false, "token");
    ASSERT_TRUE(c);
    EXPECT_STREQ(c->htConnection->host, "localhost");
    EXPECT_EQ(c->htConnection->port, 9194);
    EXPECT_FALSE(c->htConnection->useSSL);
    EXPECT_EQ(c->htConnection->timeout, 300000);
    EXPECT_EQ(stringText(c->sessionToken), "token");
    for (AWSRegion region : {AWSRegion{First_Custom_Region}, AWSRegion{No_Region}, AWSRegion{500}}) {
        OXStatus st = OX_OK;
        EXPECT_FALSE(create(region, &st)) << region;
        EXPECT_EQ(st, OXS3_UNKNOWN_REGION) << region;
    }
}

TEST_F(ConnectionTest, CustomRegionUsesItsPortOrItsTlsPort) {
    ASSERT_EQ(ext->addCustomRegion(ext, "store", "store.example", 7480, 7443, nullptr, OX_TRUE, OX_FALSE, OX_FALSE,
                                   OX_FALSE),
              OX_OK);
    const AWSRegion region = ext->regionForNameU8(ext, "store");
    OXStatus st = OX_FAILED;
    Connection plain = create(region, &st);
    ASSERT_EQ(st, OX_OK);
    EXPECT_STREQ(plain->htConnection->host, "store.example");
    EXPECT_EQ(plain->htConnection->port, 7480);
    Connection tls = create(region, &st, true);
    ASSERT_EQ(st, OX_OK);
    EXPECT_EQ(tls->htConnection->port, 7443);
    EXPECT_TRUE(tls->htConnection->useSSL);
}

TEST_F(ConnectionTest, CloneTakesCredentialsAndKeysButStartsNoThreads) {
    Connection c = connect(US_Standard_Region, true, "token");
    const uint8_t key[] = {0, 1, 2, 0xff};
    ASSERT_EQ(ext->oxstring->createData(ext->oxstring, pool, key, sizeof key, reinterpret_cast<OXData**>(&c->sseKey)),
              OX_OK);
    ASSERT_EQ(ext->oxstring->createU8(ext->oxstring, pool, "AES256", 6, OX_STR_COPY, &c->sseKeyAlgorithm), OX_OK);
    ASSERT_EQ(ext->oxstring->createU8(ext->oxstring, pool, "kms", 3, OX_STR_COPY, &c->kmsKeyId), OX_OK);
    ASSERT_EQ(s3::setErrorMessage(c.get(), "old", 3), OX_OK);
    c->maxReadThreadCount = 4;
    c->minBlockSize = 1 << 20;
    c->htConnection->timeout = 1234;

    OXS3Connection made = nullptr;
    ASSERT_EQ(c->clone(pool, c.get(), &made), OX_OK);
    Connection clone(made);
    EXPECT_NE(clone->htConnection, c->htConnection);
    EXPECT_TRUE(clone->htConnection->useSSL);
    EXPECT_EQ(clone->htConnection->port, 443) << "the endpoint's own port, which is the default one";
    EXPECT_EQ(clone->htConnection->timeout, 1234);
    EXPECT_EQ(stringText(clone->sessionToken), "token");
    EXPECT_EQ(stringText(clone->kmsKeyId), "kms");
    ASSERT_TRUE(clone->sseKey && clone->sseKey->isType(clone->sseKey, OX_TYPE_DATA));
    const auto* data = reinterpret_cast<const OXData*>(clone->sseKey);
    EXPECT_EQ(std::string(data->bytes, data->bytes + data->len), std::string(key, key + sizeof key));
    EXPECT_NE(clone->sseKey, c->sseKey);
    EXPECT_EQ(clone->sseKeyAlgorithm, nullptr);
    EXPECT_EQ(clone->errorMessage, nullptr);
    EXPECT_EQ(clone->maxReadThreadCount, 4);
    EXPECT_FALSE(clone->useReadThreads);
    EXPECT_FALSE(clone->useWriteThreads);
}

TEST_F(ConnectionTest, ErrorTextIsReplacedAndDroppedByClose) {
    Connection c = connect(Test_Region);
    ASSERT_EQ(s3::setErrorMessage(c.get(), "first", 5), OX_OK);
    ASSERT_EQ(s3::setErrorMessage(c.get(), "second", 6), OX_OK);
    EXPECT_EQ(stringText(c->errorMessage), "second");
    ASSERT_EQ(s3::setErrorMessage(c.get(), "third", 5), OX_OK);
    EXPECT_EQ(c->close(c.get()), OX_OK);
    EXPECT_EQ(c->errorMessage, nullptr);
}

TEST_F(ConnectionTest, ProxiesComeFromTheEnvironment) {
    httpProxy.set("http://user:pw@proxy.example:3128");
    httpsProxy.set("https://secure.example:8443");
    Connection c = connect(Test_Region);
    const HTConnection h = c->htConnection;
    EXPECT_EQ(stringText(h->httpProxy.host), "proxy.example");
    EXPECT_EQ(h->httpProxy.port, 3128);
    EXPECT_EQ(stringText(h->httpProxy.user), "user");
    EXPECT_EQ(stringText(h->httpProxy.pass), "pw");
    EXPECT_EQ(stringText(h->httpsProxy.host), "secure.example");
    EXPECT_EQ(h->httpsProxy.port, 8443);
    EXPECT_EQ(h->httpsProxy.user, nullptr);

    httpProxy.set("proxy.example:3128");
    OXStatus st = OX_OK;
    EXPECT_FALSE(create(Test_Region, &st));
    EXPECT_EQ(st, OX_INVALID_ARGUMENT);
}

struct URLCase {
    const char32_t* url;
    OXStatus status;
    const char* user = nullptr;
    const char* password = nullptr;
    const char* host = nullptr;
    int32_t port = 0;
};

const URLCase kURLCases[] = {
    {U"http://u:p@proxy.example:8080", OX_OK, "u", "p", "proxy.example", 8080},
    {U"socks://u@h", OX_OK, "u", nullptr, "h", 0},
    {U"http://\u00fc:p\u00e4ss@h\u00f6st", OX_OK, "\xc3\xbc", "p\xc3\xa4ss", "h\xc3\xb6st", 0},
    {U"proxy.example:3128", OX_INVALID_ARGUMENT},
    {U"http://", OX_INVALID_ARGUMENT},
    {U"http://:p@h", OX_INVALID_ARGUMENT},
    {U"http://h:3128/", OXS3_NOT_A_NUMBER},
    {U"http://h:65536", OXS3_NOT_A_NUMBER},
};

TEST_F(ConnectionTest, ProxyURLsParseOrFailWhole) {
    for (const URLCase& c : kURLCases) {
        const std::u32string text = c.url;
        s3::Owned<OXString> url;
        ASSERT_EQ(ext->oxstring->create(ext->oxstring, pool, oxtest::chars(text), text.size(), OX_STR_COPY, url.out()),
                  OX_OK);
        OXU8String *user = nullptr, *password = nullptr, *host = nullptr;
        int32_t port = -1;
        const std::string label = utf8(text);
        ASSERT_EQ(s3::parseURL(ext->oxstring, pool, url.get(), &user, &password, &host, &port), c.status) << label;
        oxtest::U8String u(user), p(password), h(host);
        EXPECT_EQ(stringText(user), c.user ? c.user : "<none>") << label;
        EXPECT_EQ(stringText(password), c.password ? c.password : "<none>") << label;
        EXPECT_EQ(stringText(host), c.host ? c.host : "<none>") << label;
        EXPECT_EQ(port, c.port) << label;
    }
}

TEST_F(ConnectionTest, CreationFailingAtAnyAllocationReleasesEverything) {
    httpProxy.set("http://u:p@proxy.example:3128");
    for (int64_t allowed = 0;; ++allowed) {
        ASSERT_LT(allowed, 200) << "creation never succeeded";
        oxPoolFailAfter(pool, allowed);
        OXStatus st = OX_OK;
        Connection c = create(Test_Region, &st);
        oxPoolFailAfter(pool, -1);
        if (c) break;
        EXPECT_NE(st, OX_OK);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after " << allowed << " allocations";
    }
}

}  // namespace
