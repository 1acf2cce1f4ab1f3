// TLS against an in-process HTTPS server with a certificate made for the run: verification on
// by default, trust from a CA file, host names checked, and the explicit ways to relax both.
#include <gtest/gtest.h>

#include <string>

#include "httptest.h"
#include "testcert.h"

namespace {

using namespace oxtest;

class HttpTls : public HttpTest {
protected:
    static inline const TestIdentity local = makeTestIdentity({"localhost"}, {"127.0.0.1"});
    static inline const TestIdentity other = makeTestIdentity({"elsewhere.test"}, {});

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(local && other) << local.error << other.error;
    }
};

TEST_F(HttpTls, VerifiesTheServerUnlessToldNotTo) {
    FaultServer localServer(local), otherServer(other);
    ASSERT_TRUE(localServer && otherServer);
    const struct {
        FaultServer& server;
        const char* host;
        Fields options;
        OXStatus expected;
    } cases[] = {
        {localServer, "localhost", {}, OX_TLS_CERT_UNTRUSTED},
        {localServer, "localhost", {{OX_SSL_CAFILE, other.caFile}}, OX_TLS_CERT_UNTRUSTED},
        {localServer, "127.0.0.1", {{OX_SSL_CAFILE, local.caFile}}, OX_OK},
        {localServer, "localhost", {{OX_SSL_CAFILE, local.caFile}, {OX_SSL_MINVERSION, "TLSv1.3"}}, OX_OK},
        {otherServer, "localhost", {{OX_SSL_CAFILE, other.caFile}}, OX_TLS_HOST_MISMATCH},
        {otherServer, "127.0.0.1", {{OX_SSL_CAFILE, other.caFile}}, OX_TLS_HOST_MISMATCH},
        {otherServer, "127.0.0.1", {{OX_SSL_CAFILE, other.caFile}, {OX_SSL_SNI, "elsewhere.test"}}, OX_OK},
        {otherServer, "localhost", {{OX_SSL_CAFILE, other.caFile}, {OX_SSL_VERIFYHOST, OX_SSL_FALSE}}, OX_OK},
        {otherServer, "localhost", {{OX_SSL_VERIFYPEER, OX_SSL_FALSE}}, OX_OK},
        {localServer, "localhost", {{OX_SSL_CAFILE, "/nonexistent/ca.pem"}}, OX_TLS_BAD_OPTIONS},
        {localServer, "localhost", {{OX_SSL_CAFILE, local.caFile}, {OX_SSL_CIPHERS, "NO-SUCH"}}, OX_TLS_BAD_OPTIONS},
    };
    for (const auto& k : cases) {
        auto opts = tlsOptions(k.options);
        auto c = connect(k.host, k.server.port(), true, opts.get());
        EXPECT_EQ(c->open(c.get()), k.expected) << k.host << " with " << ::testing::PrintToString(k.options);
    }
}

TEST_F(HttpTls, KeepsOneSessionAcrossRequestsAndReadsALargeBodyIntoTheCallersBuffer) {
    FaultServer server(local);
    const uint64_t size = 3 * 1024 * 1024 + 17;
    server.push(FaultReply::ok("n0"));
    server.push(FaultReply::generated(size));
    server.push(FaultReply::ok("n2"));
    auto opts = tlsOptions({{OX_SSL_CAFILE, local.caFile}});
    auto c = connect("localhost", server.port(), true, opts.get());
    ASSERT_EQ(c->open(c.get()), OX_OK);  // session tickets arrive while it idles: not a close
    EXPECT_EQ(exchange(c.get(), httpGet, "/").body, "n0");
    HTTPStatus st{};
    ASSERT_EQ(getHead(c.get(), "/", &st), OX_OK);
    OXStatus last;
    const std::string body = readAllInto(c.get(), 1 << 20, &last);
    EXPECT_EQ(last, OX_END_OF_DATA);
    ASSERT_EQ(body.size(), size);
    EXPECT_EQ(patternMismatch(body), std::string::npos);
    EXPECT_EQ(exchange(c.get(), httpGet, "/").body, "n2");
    EXPECT_EQ(server.connectionsAccepted(), 1u);
    EXPECT_NE(server.requests().at(0).head.find("Host: localhost:" + std::to_string(server.port())), std::string::npos);
}

TEST_F(HttpTls, AResetInsideTheSessionIsTransient) {
    FaultServer server(local);
    FaultReply r = FaultReply::generated(200000);
    r.resetAfter = 50000;
    server.push(r);
    auto opts = tlsOptions({{OX_SSL_CAFILE, local.caFile}});
    auto c = connect("localhost", server.port(), true, opts.get());
    HTTPStatus st{};
    ASSERT_EQ(getHead(c.get(), "/", &st), OX_OK);
    OXStatus last;
    readAllData(c.get(), &last);
    EXPECT_TRUE(oxHttpIsTransient(last)) << std::hex << last;
}

}  // namespace
