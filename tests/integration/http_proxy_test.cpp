// The web client through a real forward proxy (tinyproxy) to the real S3 server: plain
// requests in absolute form, with and without Basic credentials, and TLS through CONNECT.
#include <gtest/gtest.h>

#include <string>

#include "httptest.h"
#include "proxyenv.h"
#include "publicbucket.h"
#include "s3env.h"

namespace {

using oxtest::PublicBuckets;

class HttpThroughProxy : public oxtest::HttpTest {
protected:
    const oxtest::S3Env& env = oxtest::requireS3Env();
    const oxtest::ProxyEnv& proxy = oxtest::requireProxyEnv();
    const PublicBuckets& buckets = oxtest::publicBuckets();
    oxtest::TlsOptions opts;

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(env) << "the S3 server is required";
        ASSERT_TRUE(proxy) << proxy.error;
        ASSERT_TRUE(buckets) << buckets.error;
    }

    std::string smallObject() const { return "/" + buckets.open + "/" + PublicBuckets::kSmallKey; }

    oxtest::HttpConnection viaProxy(bool tls, int proxyPort, bool withCredentials) {
        oxtest::HttpConnection c;
        if (tls) {
            opts = tlsOptions({{OX_SSL_CAFILE, env.tlsCaFile}});
            c = connect("localhost", static_cast<uint16_t>(env.tlsPort), true, opts.get());
        } else {
            c = connect(env.host, static_cast<uint16_t>(env.port));
        }
        const std::string& user = withCredentials ? proxy.user : std::string();
        EXPECT_EQ(c->setProxyU8(c.get(), proxy.host.data(), proxy.host.size(), proxyPort,
                                user.empty() ? nullptr : user.data(), user.size(),
                                user.empty() ? nullptr : proxy.pass.data(), proxy.pass.size(),
                                tls ? OX_PROXY_HTTPS : OX_PROXY_HTTP),
                  OX_OK);
        return c;
    }
};

TEST_F(HttpThroughProxy, ReadsAnObjectThroughAnOpenProxy) {
    auto c = viaProxy(false, proxy.port, false);
    for (int i = 0; i < 3; ++i) {
        auto r = oxtest::exchange(c.get(), httpGet, smallObject());
        EXPECT_EQ(r.status.message, OX_HTTP_OK);
        EXPECT_EQ(r.body, PublicBuckets::kSmallText);
    }
}

TEST_F(HttpThroughProxy, PresentsCredentialsToAnAuthenticatingProxy) {
    auto c = viaProxy(false, proxy.authPort, true);
    auto r = oxtest::exchange(c.get(), httpGet, smallObject());
    EXPECT_EQ(r.status.message, OX_HTTP_OK);
    EXPECT_EQ(r.body, PublicBuckets::kSmallText);
}

TEST_F(HttpThroughProxy, ReportsAProxyThatWantsCredentials) {
    auto c = viaProxy(false, proxy.authPort, false);
    auto r = oxtest::exchange(c.get(), httpGet, smallObject());
    EXPECT_EQ(r.status.message, OX_HTTP_PROXY_AUTH_REQUIRED);
}

TEST_F(HttpThroughProxy, TunnelsTlsThroughConnect) {
    auto c = viaProxy(true, proxy.port, false);
    for (int i = 0; i < 3; ++i) {
        auto r = oxtest::exchange(c.get(), httpGet, smallObject());
        ASSERT_EQ(r.sendStatus, OX_OK);
        EXPECT_EQ(r.status.message, OX_HTTP_OK);
        EXPECT_EQ(r.body, PublicBuckets::kSmallText);
    }
    EXPECT_EQ(c->requestCount, 3) << "the tunnel is kept alive like a direct socket";
}

TEST_F(HttpThroughProxy, TunnelsTlsThroughAnAuthenticatingProxy) {
    auto c = viaProxy(true, proxy.authPort, true);
    EXPECT_EQ(oxtest::exchange(c.get(), httpGet, smallObject()).body, PublicBuckets::kSmallText);
}

TEST_F(HttpThroughProxy, ReportsATunnelRefusedForLackOfCredentials) {
    auto c = viaProxy(true, proxy.authPort, false);
    EXPECT_EQ(c->open(c.get()), OX_HTTP_PROXY_AUTH_REQUIRED);
}

TEST_F(HttpThroughProxy, VerifiesTheOriginsCertificateInsideTheTunnel) {
    auto c = connect("localhost", static_cast<uint16_t>(env.tlsPort), true);  // no CA file
    ASSERT_EQ(c->setProxyU8(c.get(), proxy.host.data(), proxy.host.size(), proxy.port, nullptr, 0, nullptr, 0,
                            OX_PROXY_HTTPS),
              OX_OK);
    EXPECT_EQ(c->open(c.get()), OX_TLS_CERT_UNTRUSTED);
}

}  // namespace
