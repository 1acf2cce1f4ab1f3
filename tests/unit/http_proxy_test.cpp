// Proxies, with the fault server standing in for the proxy so the bytes it receives can be
// checked: absolute-form requests and Basic credentials for plain origins, CONNECT for TLS ones.
#include <gtest/gtest.h>

#include <string>

#include "faultserver.h"
#include "httptest.h"
#include "ox/string.h"
#include <cstring>

namespace {

using oxtest::FaultReply;
using oxtest::FaultServer;

class HttpProxy : public oxtest::HttpTest {
protected:
    FaultServer proxy;
    std::string proxyHost = "127.0.0.1";

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(proxy) << proxy.error();
    }

    std::string firstHead() { return proxy.requests().at(0).head; }
};

TEST_F(HttpProxy, SendsPlainRequestsInAbsoluteForm) {
    auto c = connect("origin.test", 8080);
    ASSERT_EQ(c->setProxyU8(c.get(), proxyHost.data(), proxyHost.size(), proxy.port(), nullptr, 0, nullptr, 0,
                            OX_PROXY_HTTP),
              OX_OK);
    proxy.push(FaultReply::ok("via proxy"));
    auto r = oxtest::exchange(c.get(), httpGet, "/bucket/key", nullptr, {}, "acl");
    EXPECT_EQ(r.body, "via proxy");
    EXPECT_EQ(firstHead().rfind("GET http://origin.test:8080/bucket/key?acl HTTP/1.1\r\n", 0), 0u) << firstHead();
    EXPECT_NE(firstHead().find("\r\nHost: origin.test:8080\r\n"), std::string::npos);
    EXPECT_EQ(firstHead().find("Proxy-Authorization"), std::string::npos);
}

TEST_F(HttpProxy, SendsBasicCredentialsWhenAUserIsSet) {
    auto c = connect("origin.test", 80);
    ASSERT_EQ(c->setProxyU8(c.get(), proxyHost.data(), proxyHost.size(), proxy.port(), "alice", 5, "secret", 6,
                            OX_PROXY_HTTP),
              OX_OK);
    proxy.push(FaultReply::ok(""));
    oxtest::exchange(c.get(), httpGet, "/");
    EXPECT_EQ(firstHead().rfind("GET http://origin.test/ HTTP/1.1\r\n", 0), 0u) << firstHead();
    EXPECT_NE(firstHead().find("\r\nProxy-Authorization: Basic YWxpY2U6c2VjcmV0\r\n"), std::string::npos);
}

TEST_F(HttpProxy, HoldsItsOwnReferencesOnProxyStrings) {
    oxtest::Service<OXStringExt_S> strings{"oxstring"};
    OXU8String *host = nullptr, *user = nullptr;
    ASSERT_EQ(strings->createU8(strings.get(), pool, proxyHost.data(), proxyHost.size(), OX_STR_COPY, &host), OX_OK);
    ASSERT_EQ(strings->createU8(strings.get(), pool, "bob", 3, OX_STR_COPY, &user), OX_OK);
    auto c = connect("origin.test", 80);
    ASSERT_EQ(c->setProxyU8Stg(c.get(), host, proxy.port(), user, nullptr, OX_PROXY_HTTP), OX_OK);
    host->instance.destroy(host);
    user->instance.destroy(user);
    proxy.push(FaultReply::ok(""));
    oxtest::exchange(c.get(), httpGet, "/");
    EXPECT_NE(firstHead().find("Proxy-Authorization: Basic Ym9iOg==\r\n"), std::string::npos) << firstHead();
}

TEST_F(HttpProxy, TakesProxySettingsAsWideText) {
    auto c = connect("origin.test", 80);
    auto wideHost = oxtest::wide(proxyHost);
    ASSERT_EQ(c->setProxy(c.get(), oxtest::chars(wideHost), static_cast<OXStrSize>(wideHost.size()), proxy.port(),
                          nullptr, 0, nullptr, 0, OX_PROXY_HTTP),
              OX_OK);
    proxy.push(FaultReply::ok("wide"));
    EXPECT_EQ(oxtest::exchange(c.get(), httpGet, "/").body, "wide");
}

TEST_F(HttpProxy, UsesEachProxyOnlyForItsScheme) {
    FaultServer origin;
    auto c = connect("127.0.0.1", origin.port());
    ASSERT_EQ(c->setProxyU8(c.get(), "192.0.2.1", 9, 1, nullptr, 0, nullptr, 0, OX_PROXY_HTTPS), OX_OK);
    origin.push(FaultReply::ok("direct"));
    EXPECT_EQ(oxtest::exchange(c.get(), httpGet, "/").body, "direct");
}

TEST_F(HttpProxy, GoesDirectOnceTheProxyIsCleared) {
    FaultServer origin;
    auto c = connect("127.0.0.1", origin.port());
    ASSERT_EQ(c->setProxyU8(c.get(), "192.0.2.1", 9, 1, nullptr, 0, nullptr, 0, OX_PROXY_HTTP), OX_OK);
    ASSERT_EQ(c->clearProxy(c.get(), OX_PROXY_BOTH), OX_OK);
    EXPECT_EQ(c->httpProxy.host, nullptr);
    origin.push(FaultReply::ok("direct"));
    EXPECT_EQ(oxtest::exchange(c.get(), httpGet, "/").body, "direct");
}

TEST_F(HttpProxy, RefusesMalformedSettings) {
    auto c = connect("origin.test", 80);
    EXPECT_EQ(c->setProxyU8(c.get(), "p", 1, 70000, nullptr, 0, nullptr, 0, OX_PROXY_HTTP), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->setProxyU8(c.get(), "", 0, 80, nullptr, 0, nullptr, 0, OX_PROXY_HTTP), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->setProxyU8(c.get(), "p", 1, 80, nullptr, 0, nullptr, 0, 7), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->clearProxy(c.get(), 9), OX_INVALID_ARGUMENT);
}

class HttpTunnel : public HttpProxy {
protected:
    OXStatus openThroughProxy(const char* user = nullptr, const char* pass = nullptr) {
        conn = connect("origin.test", 443, true);
        c()->timeout = 5000;
        c()->setProxyU8(c(), proxyHost.data(), proxyHost.size(), proxy.port(), user, user ? std::strlen(user) : 0, pass,
                        pass ? std::strlen(pass) : 0, OX_PROXY_HTTPS);
        return c()->open(c());
    }
    HTConnection c() const { return conn.get(); }
    oxtest::HttpConnection conn;
};

TEST_F(HttpTunnel, AsksForATunnelToTheOrigin) {
    proxy.push(FaultReply::status(403, "Forbidden"));
    EXPECT_EQ(openThroughProxy("carol", "pw"), OX_HTTP_TUNNEL_REFUSED);
    EXPECT_EQ(firstHead(), "CONNECT origin.test:443 HTTP/1.1\r\nHost: origin.test:443\r\n"
                           "Proxy-Authorization: Basic Y2Fyb2w6cHc=\r\n\r\n");
    EXPECT_EQ(c()->state, htStateClosed);
}

TEST_F(HttpTunnel, NamesAProxyThatWantsCredentials) {
    proxy.push(FaultReply::status(407, "Proxy Authentication Required", "", "Proxy-Authenticate: Basic\r\n"));
    EXPECT_EQ(openThroughProxy(), OX_HTTP_PROXY_AUTH_REQUIRED);
}

TEST_F(HttpTunnel, RunsTheHandshakeThroughAnOpenedTunnel) {
    FaultReply established;
    established.bytes = "HTTP/1.1 200 Connection established\r\n\r\n";
    established.closeAfter = true;  // a stand-in proxy with no server behind it
    proxy.push(established);
    EXPECT_EQ(openThroughProxy(), OX_TLS_HANDSHAKE_FAILED);
}

}  // namespace
