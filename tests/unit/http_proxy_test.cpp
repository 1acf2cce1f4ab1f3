// Proxies, with the fault server standing in for the proxy so the bytes it receives can be
// checked: absolute-form requests and Basic credentials for plain origins, CONNECT for TLS ones.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "httptest.h"
#include "ox/string.h"

namespace {

using namespace oxtest;

class HttpProxy : public HttpTest {
protected:
    FaultServer proxy;
    const std::string proxyHost = "127.0.0.1";

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(proxy) << proxy.error();
    }
    OXStatus useProxy(HTConnection c, const char* user, const char* pass, int which) {
        return c->setProxyU8(c, proxyHost.data(), proxyHost.size(), proxy.port(), user, user ? strlen(user) : 0, pass,
                             pass ? strlen(pass) : 0, which);
    }
    std::string head(size_t i) { return proxy.requests().at(i).head; }
};

TEST_F(HttpProxy, SendsPlainRequestsInAbsoluteFormWithBasicCredentialsWhenGiven) {
    proxy.setFallback(FaultReply::ok("via proxy"));
    auto c = connect("origin.test", 8080);
    ASSERT_EQ(useProxy(c.get(), nullptr, nullptr, OX_PROXY_HTTP), OX_OK);
    EXPECT_EQ(exchange(c.get(), httpGet, "/bucket/key", nullptr, {}, "acl").body, "via proxy");
    EXPECT_EQ(head(0).rfind("GET http://origin.test:8080/bucket/key?acl HTTP/1.1\r\n", 0), 0u) << head(0);
    EXPECT_NE(head(0).find("\r\nHost: origin.test:8080\r\n"), std::string::npos);
    EXPECT_EQ(head(0).find("Proxy-Authorization"), std::string::npos);

    auto authed = connect("origin.test", 80);
    ASSERT_EQ(useProxy(authed.get(), "alice", "secret", OX_PROXY_HTTP), OX_OK);
    exchange(authed.get(), httpGet, "/");
    EXPECT_EQ(head(1).rfind("GET http://origin.test/ HTTP/1.1\r\n", 0), 0u) << head(1);
    EXPECT_NE(head(1).find("\r\nProxy-Authorization: Basic YWxpY2U6c2VjcmV0\r\n"), std::string::npos) << head(1);

    // Settings as strings the connection keeps its own references on.
    Service<OXStringExt_S> strings{"oxstring"};
    OXU8String *host = nullptr, *user = nullptr;
    ASSERT_EQ(strings->createU8(strings.get(), pool, proxyHost.data(), proxyHost.size(), OX_STR_COPY, &host), OX_OK);
    ASSERT_EQ(strings->createU8(strings.get(), pool, "bob", 3, OX_STR_COPY, &user), OX_OK);
    auto held = connect("origin.test", 80);
    ASSERT_EQ(held->setProxyU8Stg(held.get(), host, proxy.port(), user, nullptr, OX_PROXY_HTTP), OX_OK);
    host->instance.destroy(host);
    user->instance.destroy(user);
    exchange(held.get(), httpGet, "/");
    EXPECT_NE(head(2).find("\r\nProxy-Authorization: Basic Ym9iOg==\r\n"), std::string::npos) << head(2);
}

TEST_F(HttpProxy, GoesDirectWithoutAProxyForItsScheme) {
    FaultServer origin;
    origin.setFallback(FaultReply::ok("direct"));
    auto c = connect("127.0.0.1", origin.port());
    ASSERT_EQ(c->setProxyU8(c.get(), "192.0.2.1", 9, 1, nullptr, 0, nullptr, 0, OX_PROXY_HTTPS), OX_OK);
    EXPECT_EQ(exchange(c.get(), httpGet, "/").body, "direct");
    ASSERT_EQ(c->setProxyU8(c.get(), "192.0.2.1", 9, 1, nullptr, 0, nullptr, 0, OX_PROXY_HTTP), OX_OK);
    ASSERT_EQ(c->clearProxy(c.get(), OX_PROXY_BOTH), OX_OK);
    c->close(c.get());
    EXPECT_EQ(exchange(c.get(), httpGet, "/").body, "direct");
    EXPECT_EQ(c->setProxyU8(c.get(), "p", 1, 70000, nullptr, 0, nullptr, 0, OX_PROXY_HTTP), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->setProxyU8(c.get(), "", 0, 80, nullptr, 0, nullptr, 0, OX_PROXY_HTTP), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->setProxyU8(c.get(), "p", 1, 80, nullptr, 0, nullptr, 0, 7), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->clearProxy(c.get(), 9), OX_INVALID_ARGUMENT);
}

TEST_F(HttpProxy, AsksForATunnelToTlsOriginsAndNamesItsRefusals) {
    FaultReply established = rawReply("HTTP/1.1 200 Connection established\r\n\r\n");  // with no server behind
    const struct {
        FaultReply reply;
        const char* user;
        OXStatus expected;
    } cases[] = {
        {FaultReply::status(403, "Forbidden"), "carol", OX_HTTP_TUNNEL_REFUSED},
        {FaultReply::status(407, "Proxy Authentication Required", "", "Proxy-Authenticate: Basic\r\n"), nullptr,
         OX_HTTP_PROXY_AUTH_REQUIRED},
        {established, nullptr, OX_TLS_HANDSHAKE_FAILED},
    };
    for (const auto& k : cases) {
        proxy.push(k.reply);
        auto c = connect("origin.test", 443, true);
        c->timeout = 5000;
        ASSERT_EQ(useProxy(c.get(), k.user, k.user ? "pw" : nullptr, OX_PROXY_HTTPS), OX_OK);
        EXPECT_EQ(c->open(c.get()), k.expected);
        EXPECT_EQ(c->state, htStateClosed);
    }
    EXPECT_EQ(head(0), "CONNECT origin.test:443 HTTP/1.1\r\nHost: origin.test:443\r\n"
                       "Proxy-Authorization: Basic Y2Fyb2w6cHc=\r\n\r\n");
    EXPECT_EQ(head(1), "CONNECT origin.test:443 HTTP/1.1\r\nHost: origin.test:443\r\n\r\n");
}

}  // namespace
