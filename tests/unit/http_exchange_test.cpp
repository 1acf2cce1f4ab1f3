// HTTP/1.1 exchanges against the loopback fault server: what goes on the wire, how bodies are
// framed and read, and how one socket is kept across requests.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "httptest.h"

namespace {

using namespace oxtest;
using HttpExchange = FaultServerTest;

// The request line and then the header lines in sorted order: the order of fields carries no
// meaning. A head without its blank line shows as incomplete.
std::vector<std::string> headLines(const std::string& head) {
    std::vector<std::string> lines;
    for (size_t at = 0, end; (end = head.find("\r\n", at)) != std::string::npos; at = end + 2)
        lines.push_back(head.substr(at, end - at));
    if (lines.empty() || !lines.back().empty()) lines.push_back("<incomplete>");
    std::sort(lines.begin() + 1, lines.end());
    return lines;
}

TEST_F(HttpExchange, WritesTheRequestHeadWithHostHeadersAndBodyLength) {
    server.setFallback(FaultReply::ok("ok"));
    const std::string host = "Host: 127.0.0.1:" + std::to_string(server.port()) + "\r\n";
    auto h = headers({{"x-amz-date", "20240101T000000Z"}, {"Accept", "*/*"}});
    auto callersHost = headers({{"host", "bucket.localhost:7480"}});
    EXPECT_EQ(exchange(c(), httpGet, "/bucket/key%20one", h.get(), {}, "list-type=2&prefix=a").body, "ok");
    exchange(c(), httpGet, "/", callersHost.get());
    exchange(c(), httpPut, "/b/k", nullptr, "payload-bytes");
    exchange(c(), httpPut, "/b/empty");
    const auto req = server.requests();
    ASSERT_EQ(req.size(), 4u);
    EXPECT_EQ(headLines(req[0].head), headLines("GET /bucket/key%20one?list-type=2&prefix=a HTTP/1.1\r\n" + host +
                                                "x-amz-date: 20240101T000000Z\r\nAccept: */*\r\n\r\n"));
    EXPECT_EQ(headLines(req[1].head), headLines("GET / HTTP/1.1\r\nhost: bucket.localhost:7480\r\n\r\n"));
    EXPECT_EQ(headLines(req[2].head), headLines("PUT /b/k HTTP/1.1\r\n" + host + "Content-Length: 13\r\n\r\n"));
    EXPECT_EQ(req[2].body, "payload-bytes");
    EXPECT_EQ(headLines(req[3].head), headLines("PUT /b/empty HTTP/1.1\r\n" + host + "Content-Length: 0\r\n\r\n"));
}

TEST_F(HttpExchange, SendsBodiesWholeOrInPiecesButNoMoreThanAnnounced) {
    std::string big(300 * 1024, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = patternByte(i);
    server.setFallback(FaultReply::ok("stored"));
    EXPECT_EQ(exchange(c(), httpPut, "/b/big", nullptr, big).body, "stored");
    ASSERT_EQ(sendHead(c(), httpPost, "/p", 10), OX_OK);
    EXPECT_EQ(c()->sendData(c(), "01234", 5), OX_OK);
    EXPECT_EQ(c()->sendData(c(), "56789", 5), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    const auto req = server.requests();
    EXPECT_TRUE(req.at(0).body == big);
    EXPECT_EQ(req.at(1).body, "0123456789");
    ASSERT_EQ(sendHead(c(), httpPut, "/p", 4), OX_OK);
    EXPECT_EQ(c()->sendData(c(), "12345", 5), OX_HTTP_BODY_OVERRUN);
}

TEST_F(HttpExchange, RefusesRequestTextThatWouldSplitTheRequest) {
    auto h = headers({{"x-amz-meta-a", "v\r\nInjected: 1"}});
    EXPECT_EQ(sendHead(c(), httpGet, "/", -1, false, h.get()), OX_HTTP_BAD_REQUEST_TEXT);
    EXPECT_EQ(sendHead(c(), httpGet, "/a b"), OX_HTTP_BAD_REQUEST_TEXT);
    EXPECT_EQ(sendHead(c(), httpGet, "nopath"), OX_HTTP_BAD_REQUEST_TEXT);
    EXPECT_EQ(sendHead(c(), httpUnknown, "/"), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c()->sendRequest(c(), httpPut, "/k", 2, nullptr, 0, nullptr, -1, "body", 4, OX_TRUE), OX_INVALID_ARGUMENT)
        << "a body given with the head cannot wait for 100-continue";
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(HttpExchange, KeepsOneSocketUntilTheServerEndsIt) {
    FaultReply untilClose = rawReply("HTTP/1.1 200 OK\r\n\r\nuntil the end");
    const FaultReply closing[] = {FaultReply::ok("bye", "Connection: close\r\n"),
                                  rawReply("HTTP/1.0 200 OK\r\nContent-Length: 3\r\n\r\nbye", false), untilClose};
    const std::string closingBody[] = {"bye", "bye", "until the end"};
    for (int i = 0; i < 3; ++i) {
        server.push(FaultReply::ok("a"));
        server.push(FaultReply::ok("b"));
        server.push(closing[i]);
        for (const char* body : {"a", "b"}) {
            EXPECT_EQ(exchange(c(), httpGet, "/").body, body);
            EXPECT_EQ(c()->state, htStateResponseRead);
        }
        EXPECT_EQ(c()->requestCount, 2);
        EXPECT_EQ(exchange(c(), httpGet, "/").body, closingBody[i]);
        EXPECT_TRUE(c()->closeRequired) << i;
        EXPECT_EQ(c()->state, htStateClosedByServer) << i;
        EXPECT_EQ(server.connectionsAccepted(), i + 1u) << i;
    }
    expectFreshStart();
    EXPECT_EQ(c()->requestCount, 1) << "counted per socket";
    EXPECT_EQ(server.connectionsAccepted(), 4u);
}

TEST_F(HttpExchange, DecodesChunksWithExtensionsAndTrailersIntoSmallPieces) {
    server.push(FaultReply::chunked({"Hello, ", "chunked ", "world"}, ";name=\"va;lue\";flag", "X-Trailer: yes\r\n"));
    server.push(FaultReply::chunked({std::string(5000, 'a'), "bbb", std::string(7000, 'c')}));
    EXPECT_EQ(exchange(c(), httpGet, "/").body, "Hello, chunked world");
    EXPECT_TRUE(c()->responseIsChunked);
    EXPECT_EQ(c()->responseContentLength, -1);
    HTTPStatus st{};
    ASSERT_EQ(getHead(c(), "/", &st), OX_OK);
    OXStatus last;
    EXPECT_EQ(readAllInto(c(), 777, &last), std::string(5000, 'a') + "bbb" + std::string(7000, 'c'));
    EXPECT_EQ(last, OX_END_OF_DATA);
    expectFreshStart();
    EXPECT_EQ(server.connectionsAccepted(), 1u) << "the socket survives chunked bodies";
}

TEST_F(HttpExchange, ReadsALengthDelimitedBodyIntoTheCallersBufferToTheEnd) {
    server.push(FaultReply::generated(1000000));
    server.push(FaultReply::ok("abcdef"));
    HTTPStatus st{};
    ASSERT_EQ(getHead(c(), "/", &st), OX_OK);
    EXPECT_EQ(c()->responseContentLength, 1000000);
    std::string buf(1000000, '\0');
    OXMemSize got = 0;
    EXPECT_EQ(c()->readInto(c(), buf.data(), buf.size(), &got), OX_OK);
    EXPECT_EQ(got, 1000000u);
    EXPECT_EQ(patternMismatch(buf), std::string::npos);
    EXPECT_EQ(c()->readInto(c(), buf.data(), 10, &got), OX_END_OF_DATA);
    EXPECT_EQ(got, 0u);
    ASSERT_EQ(getHead(c(), "/", &st), OX_OK);
    EXPECT_EQ(c()->readInto(c(), buf.data(), 16, &got), OX_END_OF_DATA) << "a short body ends in one read";
    EXPECT_EQ(buf.substr(0, got), "abcdef");
}

TEST_F(HttpExchange, HeadNoContentAndNotModifiedCarryNoBody) {
    const struct { HTTPMethod method; const char* reply; int code; OXStatus message; } cases[] = {
        {httpHead, "HTTP/1.1 200 OK\r\nContent-Length: 12345\r\nETag: \"abc\"\r\n\r\n", 200, OX_HTTP_OK},
        {httpDelete, "HTTP/1.1 204 No Content\r\n\r\n", 204, OX_HTTP_OK},
        {httpGet, "HTTP/1.1 304 Not Modified\r\nContent-Length: 99\r\n\r\n", 304, OX_HTTP_NOT_MODIFIED},
    };
    for (const auto& k : cases) {
        server.push(rawReply(k.reply, false));
        auto r = exchange(c(), k.method, "/k");
        EXPECT_EQ(r.status.status, k.code);
        EXPECT_EQ(r.status.message, k.message);
        EXPECT_EQ(r.bodyStatus, OX_END_OF_DATA);
    }
    EXPECT_EQ(responseHeader(c(), "content-length"), "99");
    expectFreshStart();
    EXPECT_EQ(server.connectionsAccepted(), 1u) << "the answers kept in step";
}

TEST_F(HttpExchange, LooksUpResponseHeadersIgnoringCase) {
    server.push(FaultReply::ok("", "ETag: \"e1\"\r\nx-amz-meta-Color:\t blue \t\r\nX-Empty:\r\nx-dup: 1\r\nX-Dup: 2\r\n"));
    auto r = exchange(c(), httpGet, "/");
    EXPECT_STREQ(r.status.statusText, "OK");
    EXPECT_EQ(responseHeader(c(), "ETAG"), "\"e1\"");
    EXPECT_EQ(responseHeader(c(), "X-Amz-Meta-Color"), "blue");
    EXPECT_EQ(responseHeader(c(), "x-empty"), "");
    EXPECT_EQ(responseHeader(c(), "X-DUP"), "1");
    EXPECT_EQ(responseHeader(c(), "Missing"), "<none>");
    UTF8CStr name, value;
    UTF8ByteLength nameL, valueL;
    ASSERT_EQ(c()->getResponseHeaderAt(c(), 0, &name, &nameL, &value, &valueL), OX_OK);
    EXPECT_STREQ(name, "Content-Length");  // terminated in place
    EXPECT_EQ(c()->getResponseHeaderAt(c(), 6, &name, &nameL, &value, &valueL), OX_END_OF_DATA);
}

TEST_F(HttpExchange, DrainsAShortUnreadBodyButAbandonsALongOne) {
    server.push(FaultReply::ok(std::string(2000, 'z')));
    server.push(FaultReply::generated(8 * 1024 * 1024));
    server.push(FaultReply::ok("fresh"));
    HTTPStatus st{};
    ASSERT_EQ(getHead(c(), "/", &st), OX_OK);
    ASSERT_EQ(getHead(c(), "/", &st), OX_OK);
    EXPECT_EQ(server.connectionsAccepted(), 1u) << "the short body was drained";
    EXPECT_EQ(exchange(c(), httpGet, "/").body, "fresh");
    EXPECT_EQ(server.connectionsAccepted(), 2u) << "the long body was not";
}

TEST_F(HttpExchange, OpensOnceAndRefusesStepsOutOfTurn) {
    HTTPStatus st{};
    OXMemSize got;
    char buf[4];
    EXPECT_EQ(c()->readResponse(c(), &st), OX_HTTP_WRONG_STATE);
    EXPECT_EQ(c()->readInto(c(), buf, sizeof buf, &got), OX_HTTP_WRONG_STATE);
    EXPECT_EQ(c()->sendData(c(), "x", 1), OX_HTTP_WRONG_STATE);
    ASSERT_EQ(c()->open(c()), OX_OK);
    EXPECT_EQ(c()->state, htStateOpen);
    EXPECT_EQ(c()->open(c()), OX_HTTP_ALREADY_OPEN);
    EXPECT_EQ(c()->close(c()), OX_OK);
    EXPECT_EQ(c()->state, htStateClosed);
    EXPECT_EQ(c()->open(c()), OX_OK);
}

TEST_F(HttpExchange, ClonesTheOriginAndSettingsAndDefaultsPortsByScheme) {
    c()->timeout = 1234;
    ASSERT_EQ(c()->setProxyU8(c(), "proxy.test", 10, 3128, "u", 1, "p", 1, OX_PROXY_HTTP), OX_OK);
    HTConnection copy = nullptr;
    ASSERT_EQ(c()->clone(c(), pool, &copy), OX_OK);
    HttpConnection owned(copy);
    EXPECT_EQ(std::string(copy->host) + ":" + std::to_string(copy->port), "127.0.0.1:" + std::to_string(server.port()));
    EXPECT_EQ(copy->timeout, 1234);
    EXPECT_EQ(copy->state, htStateCreated);
    ASSERT_NE(copy->httpProxy.host, nullptr);
    EXPECT_EQ(std::string(copy->httpProxy.host->stg, copy->httpProxy.host->len), "proxy.test");
    EXPECT_EQ(connect("localhost", OX_DEFAULT_PORT)->port, 80);
    EXPECT_EQ(connect("localhost", OX_DEFAULT_PORT, true)->port, 443);
}

}  // namespace
