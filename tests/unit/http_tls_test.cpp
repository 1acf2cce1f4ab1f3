// TLS against an in-process HTTPS server with a certificate made for the run: verification on
// by default, trust from a CA file, host names checked, and the explicit ways to relax both.
#include <gtest/gtest.h>

#include <string>

#include "faultserver.h"
#include "httptest.h"
#include "testcert.h"

namespace {

using oxtest::FaultReply;
using oxtest::FaultServer;
using oxtest::TestIdentity;

const TestIdentity& localhostIdentity() {
    static const TestIdentity id = oxtest::makeTestIdentity({"localhost"}, {"127.0.0.1"});
    return id;
}

const TestIdentity& otherHostIdentity() {
    static const TestIdentity id = oxtest::makeTestIdentity({"elsewhere.test"}, {});
    return id;
}

class HttpTls : public oxtest::HttpTest {
protected:
    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(localhostIdentity()) << localhostIdentity().error;
        ASSERT_TRUE(otherHostIdentity()) << otherHostIdentity().error;
    }

    OXStatus openWith(FaultServer& server, const std::string& host,
                      std::initializer_list<std::pair<std::string_view, std::string_view>> options) {
        auto opts = tlsOptions(options);
        auto c = connect(host, server.port(), true, opts.get());
        return c->open(c.get());
    }
};

TEST_F(HttpTls, RefusesAServerItCannotVerifyByDefault) {
    FaultServer server(localhostIdentity());
    ASSERT_TRUE(server) << server.error();
    EXPECT_EQ(openWith(server, "localhost", {}), OX_TLS_CERT_UNTRUSTED);
}

TEST_F(HttpTls, TrustsTheCaFileItIsGiven) {
    FaultServer server(localhostIdentity());
    server.push(FaultReply::ok("secure"));
    auto opts = tlsOptions({{OX_SSL_CAFILE, localhostIdentity().caFile}});
    auto c = connect("localhost", server.port(), true, opts.get());
    auto r = oxtest::exchange(c.get(), httpGet, "/");
    ASSERT_EQ(r.sendStatus, OX_OK);
    EXPECT_EQ(r.body, "secure");
    EXPECT_NE(server.requests().at(0).head.find("Host: localhost:" + std::to_string(server.port())), std::string::npos);
}

TEST_F(HttpTls, VerifiesAnAddressAgainstTheCertificatesIpNames) {
    FaultServer server(localhostIdentity());
    EXPECT_EQ(openWith(server, "127.0.0.1", {{OX_SSL_CAFILE, localhostIdentity().caFile}}), OX_OK);
}

TEST_F(HttpTls, RefusesACertificateForAnotherHost) {
    FaultServer server(otherHostIdentity());
    EXPECT_EQ(openWith(server, "localhost", {{OX_SSL_CAFILE, otherHostIdentity().caFile}}), OX_TLS_HOST_MISMATCH);
    EXPECT_EQ(openWith(server, "127.0.0.1", {{OX_SSL_CAFILE, otherHostIdentity().caFile}}), OX_TLS_HOST_MISMATCH);
}

TEST_F(HttpTls, SkipsTheHostCheckOnlyWhenTold) {
    FaultServer server(otherHostIdentity());
    EXPECT_EQ(openWith(server, "localhost",
                       {{OX_SSL_CAFILE, otherHostIdentity().caFile}, {OX_SSL_VERIFYHOST, OX_SSL_FALSE}}),
              OX_OK);
}

TEST_F(HttpTls, AcceptsAnyServerWhenPeerVerificationIsOff) {
    FaultServer server(otherHostIdentity());
    EXPECT_EQ(openWith(server, "localhost", {{OX_SSL_VERIFYPEER, OX_SSL_FALSE}}), OX_OK);
}

TEST_F(HttpTls, VerifiesTheServerNameOptionInsteadOfTheHost) {
    FaultServer server(otherHostIdentity());
    EXPECT_EQ(openWith(server, "127.0.0.1", {{OX_SSL_CAFILE, otherHostIdentity().caFile}, {OX_SSL_SNI, "elsewhere.test"}}),
              OX_OK);
}

TEST_F(HttpTls, NamesUnusableOptions) {
    FaultServer server(localhostIdentity());
    EXPECT_EQ(openWith(server, "localhost", {{OX_SSL_CAFILE, "/nonexistent/ca.pem"}}), OX_TLS_BAD_OPTIONS);
    EXPECT_EQ(openWith(server, "localhost", {{OX_SSL_CAFILE, localhostIdentity().caFile}, {OX_SSL_CIPHERS, "NO-SUCH"}}),
              OX_TLS_BAD_OPTIONS);
}

TEST_F(HttpTls, HonoursTheMinimumVersion) {
    FaultServer server(localhostIdentity());
    EXPECT_EQ(openWith(server, "localhost", {{OX_SSL_CAFILE, localhostIdentity().caFile}, {OX_SSL_MINVERSION, "TLSv1.3"}}),
              OX_OK);
}

TEST_F(HttpTls, KeepsOneSessionAcrossRequests) {
    FaultServer server(localhostIdentity());
    const std::string bodies[] = {"n0", "n1", "n2"};
    for (const auto& body : bodies) server.push(FaultReply::ok(body));
    auto opts = tlsOptions({{OX_SSL_CAFILE, localhostIdentity().caFile}});
    auto c = connect("localhost", server.port(), true, opts.get());
    ASSERT_EQ(c->open(c.get()), OX_OK);  // session tickets arrive while it idles: not a close
    for (const auto& body : bodies) EXPECT_EQ(oxtest::exchange(c.get(), httpGet, "/").body, body);
    EXPECT_EQ(server.connectionsAccepted(), 1u);
}

TEST_F(HttpTls, ReadsALargeBodyIntoTheCallersBuffer) {
    FaultServer server(localhostIdentity());
    server.push(FaultReply::generated(3 * 1024 * 1024 + 17));
    auto opts = tlsOptions({{OX_SSL_CAFILE, localhostIdentity().caFile}});
    auto c = connect("localhost", server.port(), true, opts.get());
    ASSERT_EQ(c->sendRequest(c.get(), httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c->readResponse(c.get(), &st), OX_OK);
    OXStatus last;
    std::string body = oxtest::readAllInto(c.get(), 1 << 20, &last);
    EXPECT_EQ(last, OX_END_OF_DATA);
    ASSERT_EQ(body.size(), 3u * 1024 * 1024 + 17);
    for (size_t i = 0; i < body.size(); ++i)
        if (body[i] != oxtest::patternByte(i)) FAIL() << "byte " << i << " differs";
}

TEST_F(HttpTls, AResetInsideTheSessionIsAReset) {
    FaultServer server(localhostIdentity());
    FaultReply r = FaultReply::generated(200000);
    r.resetAfter = 50000;
    server.push(r);
    auto opts = tlsOptions({{OX_SSL_CAFILE, localhostIdentity().caFile}});
    auto c = connect("localhost", server.port(), true, opts.get());
    ASSERT_EQ(c->sendRequest(c.get(), httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c->readResponse(c.get(), &st), OX_OK);
    OXStatus last;
    oxtest::readAllData(c.get(), &last);
    EXPECT_TRUE(oxHttpIsTransient(last)) << std::hex << last;
}

}  // namespace
