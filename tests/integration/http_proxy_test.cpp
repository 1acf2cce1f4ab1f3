// The web client through a real forward proxy (tinyproxy) to the real S3 server: plain
// requests in absolute form, with and without Basic credentials, and TLS through CONNECT.
#include <gtest/gtest.h>

#include <string>

#include "httptest.h"
#include "proxyenv.h"
#include "publicbucket.h"
#include "s3env.h"

namespace {

using namespace oxtest;

class HttpThroughProxy : public HttpTest {
protected:
    const S3Env& env = requireS3Env();
    const ProxyEnv& proxy = requireProxyEnv();
    const PublicBuckets& buckets = publicBuckets();

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(env) << "the S3 server is required";
        ASSERT_TRUE(proxy) << proxy.error;
        ASSERT_TRUE(buckets) << buckets.error;
    }
};

TEST_F(HttpThroughProxy, ReachesTheServerThroughOpenAndAuthenticatingProxies) {
    const std::string object = "/" + buckets.open + "/" + PublicBuckets::kSmallKey;
    const struct {
        bool tls;
        int port;
        bool credentials;
        bool trusted;
        OXStatus expected;
    } cases[] = {
        {false, proxy.port, false, true, OX_HTTP_OK},
        {false, proxy.authPort, true, true, OX_HTTP_OK},
        {false, proxy.authPort, false, true, OX_HTTP_PROXY_AUTH_REQUIRED},
        {true, proxy.port, false, true, OX_HTTP_OK},
        {true, proxy.authPort, true, true, OX_HTTP_OK},
        {true, proxy.authPort, false, true, OX_HTTP_PROXY_AUTH_REQUIRED},
        {true, proxy.port, false, false, OX_TLS_CERT_UNTRUSTED},  // the origin is verified inside the tunnel
    };
    for (const auto& k : cases) {
        const std::string what = std::string(k.tls ? "tls" : "plain") + " via " + std::to_string(k.port) +
                                 (k.credentials ? " with credentials" : "") + (k.trusted ? "" : " without CA");
        auto opts = tlsOptions(k.trusted ? Fields{{OX_SSL_CAFILE, env.tlsCaFile}} : Fields{});
        auto c = k.tls ? connect("localhost", static_cast<uint16_t>(env.tlsPort), true, opts.get())
                       : connect(env.host, static_cast<uint16_t>(env.port));
        const std::string& user = k.credentials ? proxy.user : std::string();
        ASSERT_EQ(c->setProxyU8(c.get(), proxy.host.data(), proxy.host.size(), k.port,
                                user.empty() ? nullptr : user.data(), user.size(),
                                user.empty() ? nullptr : proxy.pass.data(), proxy.pass.size(),
                                k.tls ? OX_PROXY_HTTPS : OX_PROXY_HTTP),
                  OX_OK);
        for (int i = 1; i <= (k.expected == OX_HTTP_OK ? 3 : 1); ++i) {
            auto r = exchange(c.get(), httpGet, object);
            EXPECT_EQ(r.sendStatus == OX_OK ? r.status.message : r.sendStatus, k.expected) << what;
            if (k.expected == OX_HTTP_OK) {
                EXPECT_EQ(r.body, PublicBuckets::kSmallText) << what;
                EXPECT_TRUE(!k.tls || c->requestCount == i) << what << ": the tunnel is kept like a direct socket";
            }
        }
    }
}

}  // namespace
