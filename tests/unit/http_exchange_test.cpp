// HTTP/1.1 exchanges against the loopback fault server: what goes on the wire, how bodies are
// framed and read, and how one socket is kept across requests.
#include <gtest/gtest.h>

#include <string>

#include "faultserver.h"
#include "httptest.h"

namespace {

using oxtest::FaultReply;
using oxtest::FaultServer;

class HttpExchange : public oxtest::HttpTest {
protected:
    FaultServer server;
    oxtest::HttpConnection conn;

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(server) << server.error();
        conn = connect("127.0.0.1", server.port());
        ASSERT_TRUE(conn);
    }
    HTConnection c() const { return conn.get(); }
};

TEST_F(HttpExchange, StartsCreatedAndUnopened) {
    EXPECT_EQ(c()->state, htStateCreated);
    EXPECT_EQ(c()->requestCount, 0);
    EXPECT_EQ(c()->lastActivityTime, -1.0);
    EXPECT_STREQ(c()->host, "127.0.0.1");
    EXPECT_EQ(c()->port, server.port());
    EXPECT_FALSE(c()->useSSL);
}

TEST_F(HttpExchange, ReplacesTheDefaultPortByTheSchemes) {
    auto plain = connect("localhost", OX_DEFAULT_PORT);
    auto tls = connect("localhost", OX_DEFAULT_PORT, true);
    EXPECT_EQ(plain->port, 80);
    EXPECT_EQ(tls->port, 443);
}

TEST_F(HttpExchange, WritesRequestLineHostAndDictionaryHeaders) {
    server.push(FaultReply::ok("hello"));
    auto h = headers({{"x-amz-date", "20240101T000000Z"}, {"Accept", "*/*"}});
    auto r = oxtest::exchange(c(), httpGet, "/bucket/key%20one", h.get(), {}, "list-type=2&prefix=a");
    ASSERT_EQ(r.readStatus, OX_OK);
    EXPECT_EQ(r.body, "hello");
    auto head = server.requests().at(0).head;
    EXPECT_EQ(head.rfind("GET /bucket/key%20one?list-type=2&prefix=a HTTP/1.1\r\n", 0), 0u) << head;
    EXPECT_NE(head.find("\r\nHost: 127.0.0.1:" + std::to_string(server.port()) + "\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("\r\nx-amz-date: 20240101T000000Z\r\n"), std::string::npos);
    EXPECT_NE(head.find("\r\nAccept: */*\r\n"), std::string::npos);
    EXPECT_EQ(head.find("Content-Length"), std::string::npos) << "a GET without body announces none";
}

TEST_F(HttpExchange, KeepsTheCallersHostHeader) {
    server.push(FaultReply::ok(""));
    auto h = headers({{"host", "bucket.localhost:7480"}});
    oxtest::exchange(c(), httpGet, "/", h.get());
    auto head = server.requests().at(0).head;
    EXPECT_NE(head.find("host: bucket.localhost:7480\r\n"), std::string::npos) << head;
    EXPECT_EQ(head.find("Host: 127.0.0.1"), std::string::npos) << head;
}

TEST_F(HttpExchange, SendsASmallBodyWithItsLength) {
    server.push(FaultReply::status(201, "Created"));
    auto r = oxtest::exchange(c(), httpPut, "/b/k", nullptr, "payload-bytes");
    EXPECT_EQ(r.status.message, OX_HTTP_CREATED);
    auto req = server.requests().at(0);
    EXPECT_NE(req.head.find("\r\nContent-Length: 13\r\n"), std::string::npos) << req.head;
    EXPECT_EQ(req.body, "payload-bytes");
}

TEST_F(HttpExchange, AnnouncesZeroLengthForAnEmptyPut) {
    server.push(FaultReply::ok(""));
    oxtest::exchange(c(), httpPut, "/b/empty");
    EXPECT_NE(server.requests().at(0).head.find("\r\nContent-Length: 0\r\n"), std::string::npos);
}

TEST_F(HttpExchange, SendsALargeBodyFromTheCallersMemory) {
    std::string big(300 * 1024, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = oxtest::patternByte(i);
    server.push(FaultReply::ok("stored"));
    auto r = oxtest::exchange(c(), httpPut, "/b/big", nullptr, big);
    EXPECT_EQ(r.body, "stored");
    EXPECT_EQ(server.requests().at(0).body, big);
}

TEST_F(HttpExchange, SendsABodyInPiecesAfterTheHead) {
    server.push(FaultReply::ok("ok"));
    ASSERT_EQ(c()->sendRequest(c(), httpPost, "/p", 2, nullptr, 0, nullptr, 10, nullptr, 0, OX_FALSE), OX_OK);
    EXPECT_EQ(c()->state, htStateRequestSent);
    EXPECT_EQ(c()->sendData(c(), "01234", 5), OX_OK);
    EXPECT_EQ(c()->sendData(c(), "56789", 5), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(server.requests().at(0).body, "0123456789");
}

TEST_F(HttpExchange, RefusesMoreBodyThanAnnounced) {
    ASSERT_EQ(c()->sendRequest(c(), httpPut, "/p", 2, nullptr, 0, nullptr, 4, nullptr, 0, OX_FALSE), OX_OK);
    EXPECT_EQ(c()->sendData(c(), "12345", 5), OX_HTTP_BODY_OVERRUN);
}

TEST_F(HttpExchange, RefusesHeaderValuesThatWouldSplitTheRequest) {
    auto h = headers({{"x-amz-meta-a", "v\r\nInjected: 1"}});
    EXPECT_EQ(c()->sendRequest(c(), httpGet, "/", 1, nullptr, 0, h.get(), -1, nullptr, 0, OX_FALSE),
              OX_HTTP_BAD_REQUEST_TEXT);
    EXPECT_EQ(c()->sendRequest(c(), httpGet, "/a b", 4, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE),
              OX_HTTP_BAD_REQUEST_TEXT);
    EXPECT_EQ(c()->sendRequest(c(), httpGet, "nopath", 6, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE),
              OX_HTTP_BAD_REQUEST_TEXT);
    EXPECT_EQ(c()->sendRequest(c(), httpUnknown, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE),
              OX_INVALID_ARGUMENT);
}

TEST_F(HttpExchange, ReusesOneSocketAcrossRequests) {
    for (int i = 0; i < 5; ++i) server.push(FaultReply::ok("r" + std::to_string(i)));
    for (int i = 0; i < 5; ++i) {
        auto r = oxtest::exchange(c(), httpGet, "/k");
        EXPECT_EQ(r.body, "r" + std::to_string(i));
        EXPECT_EQ(c()->requestCount, i + 1);
        EXPECT_EQ(c()->state, htStateResponseRead);
        EXPECT_GT(c()->lastActivityTime, 0.0);
    }
    EXPECT_EQ(server.connectionsAccepted(), 1u);
}

TEST_F(HttpExchange, OpenReportsAnOpenConnection) {
    ASSERT_EQ(c()->open(c()), OX_OK);
    EXPECT_EQ(c()->state, htStateOpen);
    EXPECT_EQ(c()->lastActivityTime, -1.0);
    EXPECT_EQ(c()->open(c()), OX_HTTP_ALREADY_OPEN);
    EXPECT_EQ(c()->close(c()), OX_OK);
    EXPECT_EQ(c()->state, htStateClosed);
    EXPECT_EQ(c()->open(c()), OX_OK);
    EXPECT_EQ(c()->state, htStateOpen);
}

TEST_F(HttpExchange, CountsRequestsPerSocket) {
    for (int i = 0; i < 3; ++i) server.push(FaultReply::ok("x"));
    oxtest::exchange(c(), httpGet, "/");
    oxtest::exchange(c(), httpGet, "/");
    c()->close(c());
    oxtest::exchange(c(), httpGet, "/");
    EXPECT_EQ(c()->requestCount, 1);
}

TEST_F(HttpExchange, ClosesWhenTheServerSaysSo) {
    server.push(FaultReply::ok("bye", "Connection: close\r\n"));
    server.push(FaultReply::ok("again"));
    auto r = oxtest::exchange(c(), httpGet, "/");
    EXPECT_TRUE(c()->closeRequired);
    EXPECT_EQ(c()->state, htStateClosedByServer);
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "again");
    EXPECT_EQ(server.connectionsAccepted(), 2u);
}

TEST_F(HttpExchange, ReadsABodyDelimitedByClose) {
    FaultReply r;
    r.bytes = "HTTP/1.1 200 OK\r\n\r\nuntil the end";
    r.closeAfter = true;
    server.push(r);
    auto resp = oxtest::exchange(c(), httpGet, "/");
    EXPECT_EQ(resp.body, "until the end");
    EXPECT_EQ(c()->state, htStateClosedByServer);
}

TEST_F(HttpExchange, TreatsHttp10AsCloseUnlessKeptAlive) {
    FaultReply r;
    r.bytes = "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok";
    server.push(r);
    oxtest::exchange(c(), httpGet, "/");
    EXPECT_TRUE(c()->closeRequired);
}

TEST_F(HttpExchange, DecodesChunksWithExtensionsAndTrailers) {
    server.push(FaultReply::chunked({"Hello, ", "chunked ", "world"}, ";name=\"va;lue\";flag", "X-Trailer: yes\r\n"));
    server.push(FaultReply::ok("next"));
    auto r = oxtest::exchange(c(), httpGet, "/");
    EXPECT_EQ(r.body, "Hello, chunked world");
    EXPECT_TRUE(c()->responseIsChunked);
    EXPECT_EQ(c()->responseContentLength, -1);
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "next");
    EXPECT_EQ(server.connectionsAccepted(), 1u) << "the socket survives a chunked body";
}

TEST_F(HttpExchange, ReadsChunksIntoSmallPieces) {
    server.push(FaultReply::chunked({std::string(5000, 'a'), std::string(3, 'b'), std::string(7000, 'c')}));
    ASSERT_EQ(c()->sendRequest(c(), httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    OXStatus last;
    std::string body = oxtest::readAllInto(c(), 777, &last);
    EXPECT_EQ(last, OX_END_OF_DATA);
    EXPECT_EQ(body, std::string(5000, 'a') + "bbb" + std::string(7000, 'c'));
}

TEST_F(HttpExchange, ReadsIntoTheCallersBufferToTheEnd) {
    server.push(FaultReply::generated(1000000));
    ASSERT_EQ(c()->sendRequest(c(), httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(c()->responseContentLength, 1000000);
    std::string buf(1000000, '\0');
    OXMemSize got = 0;
    EXPECT_EQ(c()->readInto(c(), buf.data(), buf.size(), &got), OX_OK);
    EXPECT_EQ(got, 1000000u);
    for (size_t i = 0; i < buf.size(); ++i)
        if (buf[i] != oxtest::patternByte(i)) FAIL() << "byte " << i << " differs";
    EXPECT_EQ(c()->readInto(c(), buf.data(), 10, &got), OX_END_OF_DATA);
    EXPECT_EQ(got, 0u);
}

TEST_F(HttpExchange, ReportsTheEndOfAShortBody) {
    server.push(FaultReply::ok("abc"));
    oxtest::exchange(c(), httpGet, "/");  // reads it all
    server.push(FaultReply::ok("abcdef"));
    ASSERT_EQ(c()->sendRequest(c(), httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    char buf[16];
    OXMemSize got = 0;
    EXPECT_EQ(c()->readInto(c(), buf, sizeof buf, &got), OX_END_OF_DATA);
    EXPECT_EQ(std::string(buf, got), "abcdef");
}

TEST_F(HttpExchange, HeadAnswersCarryNoBody) {
    FaultReply head;  // announces the object's length, sends no body
    head.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 12345\r\nETag: \"abc\"\r\n\r\n";
    server.push(head);
    server.push(FaultReply::ok("after"));
    auto r = oxtest::exchange(c(), httpHead, "/obj");
    EXPECT_EQ(r.status.message, OX_HTTP_OK);
    EXPECT_EQ(r.bodyStatus, OX_END_OF_DATA);
    EXPECT_EQ(c()->responseContentLength, 12345);
    EXPECT_EQ(oxtest::responseHeader(c(), "etag"), "\"abc\"");
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "after");
    EXPECT_EQ(server.connectionsAccepted(), 1u);
}

TEST_F(HttpExchange, NoContentAndNotModifiedCarryNoBody) {
    FaultReply noContent, notModified;
    noContent.bytes = "HTTP/1.1 204 No Content\r\n\r\n";
    notModified.bytes = "HTTP/1.1 304 Not Modified\r\nContent-Length: 99\r\n\r\n";
    server.push(noContent);
    server.push(notModified);
    server.push(FaultReply::ok("still in step"));
    auto a = oxtest::exchange(c(), httpDelete, "/k");
    EXPECT_EQ(a.status.message, OX_HTTP_OK);
    EXPECT_EQ(a.status.status, 204);
    EXPECT_EQ(a.bodyStatus, OX_END_OF_DATA);
    auto b = oxtest::exchange(c(), httpGet, "/k");
    EXPECT_EQ(b.status.message, OX_HTTP_NOT_MODIFIED);
    EXPECT_EQ(b.bodyStatus, OX_END_OF_DATA);
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "still in step");
}

TEST_F(HttpExchange, LooksUpResponseHeadersIgnoringCase) {
    server.push(FaultReply::ok("", "ETag: \"e1\"\r\nx-amz-meta-Color:  blue \r\nX-Empty:\r\nx-dup: 1\r\nX-Dup: 2\r\n"));
    auto r = oxtest::exchange(c(), httpGet, "/");
    EXPECT_EQ(std::string(r.status.statusText), "OK");
    EXPECT_EQ(oxtest::responseHeader(c(), "ETAG"), "\"e1\"");
    EXPECT_EQ(oxtest::responseHeader(c(), "X-Amz-Meta-Color"), "blue");
    EXPECT_EQ(oxtest::responseHeader(c(), "x-empty"), "");
    EXPECT_EQ(oxtest::responseHeader(c(), "X-DUP"), "1");
    EXPECT_EQ(oxtest::responseHeader(c(), "Missing"), "<none>");
    UTF8CStr name, value;
    UTF8ByteLength nameL, valueL;
    ASSERT_EQ(c()->getResponseHeaderAt(c(), 0, &name, &nameL, &value, &valueL), OX_OK);
    EXPECT_STREQ(name, "Content-Length");  // terminated in place
    EXPECT_EQ(c()->getResponseHeaderAt(c(), 6, &name, &nameL, &value, &valueL), OX_END_OF_DATA);
}

TEST_F(HttpExchange, DrainsAnUnreadShortBodyToKeepTheSocket) {
    server.push(FaultReply::ok(std::string(2000, 'z')));
    server.push(FaultReply::ok("second"));
    ASSERT_EQ(c()->sendRequest(c(), httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "second");
    EXPECT_EQ(server.connectionsAccepted(), 1u);
}

TEST_F(HttpExchange, AbandonsTheSocketUnderALongUnreadBody) {
    server.push(FaultReply::generated(8 * 1024 * 1024));
    server.push(FaultReply::ok("fresh"));
    ASSERT_EQ(c()->sendRequest(c(), httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "fresh");
    EXPECT_EQ(server.connectionsAccepted(), 2u);
}

TEST_F(HttpExchange, RefusesStepsOutOfTurn) {
    HTTPStatus st{};
    OXMemSize got;
    char buf[4];
    EXPECT_EQ(c()->readResponse(c(), &st), OX_HTTP_WRONG_STATE);
    EXPECT_EQ(c()->readInto(c(), buf, sizeof buf, &got), OX_HTTP_WRONG_STATE);
    EXPECT_EQ(c()->sendData(c(), "x", 1), OX_HTTP_WRONG_STATE);
}

TEST_F(HttpExchange, ClonesTheOriginAndSettings) {
    c()->timeout = 1234;
    ASSERT_EQ(c()->setProxyU8(c(), "proxy.test", 10, 3128, "u", 1, "p", 1, OX_PROXY_HTTP), OX_OK);
    HTConnection copy = nullptr;
    ASSERT_EQ(c()->clone(c(), pool, &copy), OX_OK);
    oxtest::HttpConnection owned(copy);
    EXPECT_STREQ(copy->host, "127.0.0.1");
    EXPECT_EQ(copy->port, server.port());
    EXPECT_EQ(copy->timeout, 1234);
    EXPECT_EQ(copy->state, htStateCreated);
    ASSERT_NE(copy->httpProxy.host, nullptr);
    EXPECT_EQ(std::string(copy->httpProxy.host->stg, copy->httpProxy.host->len), "proxy.test");
    EXPECT_EQ(copy->httpProxy.port, 3128);
    EXPECT_EQ(copy->httpsProxy.host, nullptr);
}

}  // namespace
