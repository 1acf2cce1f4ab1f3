// Faults the fault server scripts: resets, early closes, stalls, aborts, malformed and oversize
// answers. Each must end in a named status, leave no socket behind, and let the next request
// start afresh.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "httptest.h"

namespace {

using namespace oxtest;
using HttpFaults = FaultServerTest;

FaultReply cut(FaultReply r, int64_t resetAfter, uint64_t patternBody, bool closeAfter) {
    r.resetAfter = resetAfter;
    r.patternBody = patternBody;
    r.closeAfter = closeAfter;
    return r;
}

TEST_F(HttpFaults, BrokenAnswersEndInANamedStatusAndAFreshSocket) {
    const FaultReply body = FaultReply::generated(100000);
    const struct {
        const char* what;
        FaultReply reply;  // when nothing is queued, the server reads the request and closes
        bool inBody;
        OXStatus expected;
        bool transient;
    } cases[] = {
        {"reset in the body", cut(body, 40000, 100000, false), true, OX_HTTP_CONNECTION_RESET, true},
        {"close in the body", cut(body, -1, 5000, true), true, OX_HTTP_RESPONSE_TRUNCATED, false},
        {"reset before the head", cut(FaultReply::ok("never"), 0, 0, false), false, OX_HTTP_CONNECTION_RESET, true},
        {"close inside the head", rawReply("HTTP/1.1 200 OK\r\nContent-Le"), false, OX_HTTP_RESPONSE_TRUNCATED, false},
        {"close before the head", FaultReply{}, false, OX_HTTP_PEER_CLOSED, true},
    };
    for (const auto& k : cases) {
        c()->close(c());  // a reused socket dying unanswered would be retried
        if (!k.reply.bytes.empty()) server.push(k.reply);
        HTTPStatus st{};
        OXStatus s = getHead(c(), "/", &st);
        if (k.inBody) {
            ASSERT_EQ(s, OX_OK) << k.what;
            readAllInto(c(), 4096, &s);
        }
        EXPECT_EQ(s, k.expected) << k.what;
        EXPECT_EQ(oxHttpIsTransient(s), k.transient) << k.what;
        EXPECT_EQ(c()->state, htStateClosed) << k.what;
        EXPECT_TRUE(s != OX_HTTP_CONNECTION_RESET || c()->tcpError == ECONNRESET) << k.what;
        expectFreshStart();
    }
}

TEST_F(HttpFaults, StallPastTheTimeoutTimesOutBeforeTheHeadAndInTheBody) {
    c()->timeout = 200;
    FaultReply late = FaultReply::ok("late");
    late.delayMs = 3000;
    EXPECT_EQ(headStatus(late), OX_SOCKET_TIMED_OUT);
    FaultReply stalled = FaultReply::generated(50000);
    stalled.stallAfter = static_cast<int64_t>(stalled.bytes.size()) + 10000;
    stalled.stallMs = 3000;
    server.push(stalled);
    HTTPStatus st{};
    ASSERT_EQ(getHead(c(), "/", &st), OX_OK);
    OXStatus last;
    readAllInto(c(), 65536, &last);
    EXPECT_EQ(last, OX_SOCKET_TIMED_OUT);
    EXPECT_TRUE(oxHttpIsTransient(last));
    EXPECT_EQ(c()->state, htStateClosed);
}

TEST_F(HttpFaults, AbortEventEndsAWaitForTheAnswerAndStopsSending) {
    OXEventCreateParms parms{};
    OX_EVENT_S* abort = host()->eventCreate(host(), &parms, nullptr, "test abort");
    ASSERT_TRUE(abort);
    FaultReply late = FaultReply::ok("late");
    late.delayMs = 10000;
    server.push(late);
    ASSERT_EQ(c()->setEvent(c(), abort), OX_OK);
    std::thread poster([&] {
        for (int i = 0; i < 500 && server.requests().empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        abort->post(abort);
    });
    HTTPStatus st{};
    EXPECT_EQ(getHead(c(), "/", &st), OX_HTTP_ABORTED);
    poster.join();
    EXPECT_EQ(c()->state, htStateClosed);

    EXPECT_EQ(sendHead(c(), httpPut, "/k", 100), OX_HTTP_ABORTED) << "nothing starts while the event is posted";
    abort->clear(abort);
    ASSERT_EQ(sendHead(c(), httpPut, "/k", 100), OX_OK);
    abort->post(abort);
    EXPECT_EQ(c()->sendData(c(), std::string(100, 'x').data(), 100), OX_HTTP_ABORTED);
    EXPECT_EQ(c()->state, htStateClosed);
    c()->setEvent(c(), nullptr);
    abort->generic.destroy(abort);
}

TEST_F(HttpFaults, DetectsAnIdleSocketTheServerClosed) {
    server.push(cut(FaultReply::ok("1"), -1, 0, true));  // no "Connection: close": the client believes it kept
    server.push(cut(FaultReply::ok("2"), -1, 0, true));
    server.push(FaultReply::ok("3"));
    EXPECT_EQ(exchange(c(), httpGet, "/").body, "1");
    EXPECT_EQ(c()->state, htStateResponseRead);
    ASSERT_TRUE(server.waitForClosed(1));
    auto second = exchange(c(), httpGet, "/");
    EXPECT_EQ(second.sendStatus, OX_OK);
    EXPECT_EQ(second.body, "2");
    ASSERT_TRUE(server.waitForClosed(2));
    EXPECT_EQ(c()->open(c()), OX_OK) << "a dead socket is not 'already open'";
    EXPECT_EQ(exchange(c(), httpGet, "/").body, "3");
    EXPECT_EQ(server.requests().at(2).connection, 3u);
}

TEST_F(HttpFaults, SendsARequestWithoutABodyAgainWhenAReusedSocketDiesUnanswered) {
    FaultReply hangUp;
    hangUp.hangUp = true;  // as if the idle close crossed the request on the wire
    server.push(FaultReply::ok("first"));
    server.push(hangUp);
    server.push(FaultReply::ok("second"));
    EXPECT_EQ(exchange(c(), httpGet, "/").body, "first");
    auto second = exchange(c(), httpGet, "/");
    EXPECT_EQ(second.readStatus, OX_OK);
    EXPECT_EQ(second.body, "second");
    EXPECT_EQ(c()->requestCount, 1);
    EXPECT_EQ(server.requests().size(), 3u);

    hangUp.answerBeforeBody = true;  // a streamed body is never sent again
    server.push(hangUp);
    ASSERT_EQ(sendHead(c(), httpPut, "/k", 3), OX_OK);
    c()->sendData(c(), "abc", 3);
    HTTPStatus st{};
    OXStatus s = c()->readResponse(c(), &st);
    EXPECT_TRUE(s == OX_HTTP_PEER_CLOSED || s == OX_HTTP_CONNECTION_RESET) << std::hex << s;
    EXPECT_EQ(server.requests().size(), 4u);
}

TEST_F(HttpFaults, ServesAServerThatClosesAfterThreeRequests) {
    for (int i = 1; i <= 6; ++i) server.push(cut(FaultReply::ok(std::to_string(i)), -1, 0, i % 3 == 0));
    for (int i = 1; i <= 6; ++i) {
        ASSERT_TRUE(i != 4 || server.waitForClosed(1));
        EXPECT_EQ(exchange(c(), httpGet, "/").body, std::to_string(i));
    }
    EXPECT_EQ(server.connectionsAccepted(), 2u);
}

TEST_F(HttpFaults, RefusesGarbageOversizeAndMisframedAnswers) {
    std::string many = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 300; ++i) many += "X-" + std::to_string(i) + ": v\r\n";
    const std::pair<std::string, OXStatus> cases[] = {
        {"HTTX/1.1 200 OK\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 2OO OK\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/2.0 200 OK\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200OK\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 099 Low\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 OK\r\nBad Header: x\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"\x16\x03\x01\x02\xa5\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 OK\r\n folded\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 OK\r\nNoColon\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 OK\r\nX-Big: " + std::string(70000, 'a') + "\r\n\r\n", OX_HTTP_HEAD_TOO_LARGE},
        {many + "\r\n", OX_HTTP_HEAD_TOO_LARGE},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 6\r\n\r\nhello", OX_HTTP_BAD_CONTENT_LENGTH},
        {"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n", OX_HTTP_BAD_CONTENT_LENGTH},
    };
    for (const auto& [bytes, expected] : cases) {
        EXPECT_EQ(headStatus(rawReply(bytes)), expected) << bytes.substr(0, 40);
        EXPECT_EQ(c()->state, htStateClosed);
    }
    server.push(rawReply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nhello\r\n0\r\n\r\n"));
    HTTPStatus st{};
    ASSERT_EQ(getHead(c(), "/", &st), OX_OK);
    OXStatus last;
    readAllData(c(), &last);
    EXPECT_EQ(last, OX_HTTP_BAD_CHUNK);
    expectFreshStart();
}

TEST_F(HttpFaults, MapsStatusesThroughTheTableWithOnlyBodilessServerErrorsTransient) {
    const struct {
        int code;
        const char* body;
        OXStatus expected;
        bool transient;
    } cases[] = {
        {200, "b", OX_HTTP_OK, false},          {201, "b", OX_HTTP_CREATED, false},
        {206, "b", OX_HTTP_PARTIAL_CONTENT, false}, {301, "b", OX_HTTP_MOVED_PERMANENTLY, false},
        {400, "b", OX_HTTP_BAD_REQUEST, false}, {409, "b", OX_HTTP_CONFLICT, false},
        {299, "b", OX_HTTP_OTHER_SUCCESS, false}, {307, "b", OX_HTTP_TEMPORARY_REDIRECT, false},
        {399, "b", OX_HTTP_REDIRECT, false},    {403, "b", OX_HTTP_FORBIDDEN, false},
        {404, "b", OX_HTTP_NOT_FOUND, false},   {416, "b", OX_HTTP_RANGE_NOT_SATISFIABLE, false},
        {418, "b", OX_HTTP_CLIENT_ERROR, false}, {501, "b", OX_HTTP_NOT_IMPLEMENTED, false},
        {504, "b", OX_HTTP_GATEWAY_TIMEOUT, false}, {599, "b", OX_HTTP_SERVER_ERROR, false},
        {500, "<Error/>", OX_HTTP_SERVER_ERROR, false},
        {503, "<Error><Code>SlowDown</Code></Error>", OX_HTTP_UNAVAILABLE, false},
        {500, "", OX_HTTP_SERVER_ERROR_NO_BODY, true},
        {503, "", OX_HTTP_UNAVAILABLE_NO_BODY, true},
    };
    for (const auto& k : cases) {
        const OXStatus s = headStatus(FaultReply::status(k.code, "Any", k.body));
        EXPECT_EQ(s, k.expected) << k.code << " " << k.body;
        EXPECT_EQ(oxHttpIsTransient(s), k.transient) << k.code << " " << k.body;
    }
}

TEST_F(HttpFaults, RefusedConnectionsFailToConnect) {
    uint16_t port;
    {
        FaultServer gone;
        port = gone.port();
    }  // nothing listens there now
    auto refused = connect("127.0.0.1", port);
    EXPECT_EQ(refused->open(refused.get()), OX_HTTP_CONNECT_FAILED);
    EXPECT_EQ(refused->tcpError, ECONNREFUSED);
    EXPECT_EQ(refused->state, htStateClosed);
}

}  // namespace
