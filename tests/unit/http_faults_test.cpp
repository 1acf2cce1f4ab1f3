// Faults the fault server scripts: resets, early closes, stalls, aborts, malformed and oversize
// answers. Each must end in a named status, leave no socket behind, and let the next request
// start afresh.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "faultserver.h"
#include "httptest.h"
#include "ox/msg.h"

namespace {

using oxtest::FaultReply;
using oxtest::FaultServer;

class HttpFaults : public oxtest::HttpTest {
protected:
    FaultServer server;
    oxtest::HttpConnection conn;

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(server) << server.error();
        conn = connect("127.0.0.1", server.port());
    }
    HTConnection c() const { return conn.get(); }

    OXStatus get(HTTPStatus* st) {
        OXStatus s = c()->sendRequest(c(), httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE);
        return s == OX_OK ? c()->readResponse(c(), st) : s;
    }

    // The status of the answer's head, or of reading it.
    OXStatus headStatus(const FaultReply& reply) {
        server.push(reply);
        HTTPStatus st{};
        OXStatus s = get(&st);
        return s == OX_OK ? st.message : s;
    }

    void expectFreshStart() {
        server.push(FaultReply::ok("recovered"));
        EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "recovered");
    }
};

FaultReply raw(std::string bytes, bool closeAfter = true) {
    FaultReply r;
    r.bytes = std::move(bytes);
    r.closeAfter = closeAfter;
    return r;
}

TEST_F(HttpFaults, ResetInTheMiddleOfABodyIsAResetAndDropsTheSocket) {
    FaultReply r = FaultReply::generated(100000);
    r.resetAfter = 40000;
    server.push(r);
    HTTPStatus st{};
    ASSERT_EQ(get(&st), OX_OK);
    OXStatus last;
    oxtest::readAllInto(c(), 4096, &last);
    EXPECT_EQ(last, OX_HTTP_CONNECTION_RESET);
    EXPECT_TRUE(oxHttpIsTransient(last));
    EXPECT_EQ(c()->state, htStateClosed);
    EXPECT_EQ(c()->tcpError, ECONNRESET);
    expectFreshStart();
}

TEST_F(HttpFaults, CloseInTheMiddleOfABodyIsATruncation) {
    FaultReply r = FaultReply::generated(100000);
    r.patternBody = 5000;  // of the 100000 announced
    r.closeAfter = true;
    server.push(r);
    HTTPStatus st{};
    ASSERT_EQ(get(&st), OX_OK);
    OXStatus last;
    oxtest::readAllData(c(), &last);
    EXPECT_EQ(last, OX_HTTP_RESPONSE_TRUNCATED);
    EXPECT_FALSE(oxHttpIsTransient(last));
    expectFreshStart();
}

TEST_F(HttpFaults, CloseBeforeAnyAnswerIsAPeerClose) {
    // No reply queued: the server reads the request and closes.
    HTTPStatus st{};
    OXStatus s = get(&st);
    EXPECT_EQ(s, OX_HTTP_PEER_CLOSED);
    EXPECT_TRUE(oxHttpIsTransient(s));
    EXPECT_EQ(c()->state, htStateClosed);
    expectFreshStart();
}

TEST_F(HttpFaults, ResetBeforeAnyAnswerIsAReset) {
    FaultReply r = FaultReply::ok("never");
    r.resetAfter = 0;
    EXPECT_EQ(headStatus(r), OX_HTTP_CONNECTION_RESET);
    expectFreshStart();
}

TEST_F(HttpFaults, CloseInsideTheHeadIsATruncation) {
    EXPECT_EQ(headStatus(raw("HTTP/1.1 200 OK\r\nContent-Le")), OX_HTTP_RESPONSE_TRUNCATED);
}

TEST_F(HttpFaults, StallInTheBodyPastTheTimeoutTimesOut) {
    FaultReply r = FaultReply::generated(50000);
    r.stallAfter = static_cast<int64_t>(r.bytes.size()) + 10000;
    r.stallMs = 3000;
    server.push(r);
    c()->timeout = 200;
    HTTPStatus st{};
    ASSERT_EQ(get(&st), OX_OK);
    OXStatus last;
    std::string body = oxtest::readAllInto(c(), 65536, &last);
    EXPECT_EQ(last, OX_SOCKET_TIMED_OUT);
    EXPECT_TRUE(oxHttpIsTransient(last));
    EXPECT_EQ(c()->state, htStateClosed);
}

TEST_F(HttpFaults, SilenceBeforeTheHeadTimesOut) {
    FaultReply r = FaultReply::ok("late");
    r.delayMs = 3000;
    c()->timeout = 200;
    EXPECT_EQ(headStatus(r), OX_SOCKET_TIMED_OUT);
}

class AbortEvent {
public:
    AbortEvent() {
        OXEventCreateParms parms{};
        ev_ = oxtest::host()->eventCreate(oxtest::host(), &parms, nullptr, "test abort");
    }
    ~AbortEvent() {
        if (ev_) ev_->generic.destroy(ev_);
    }
    OX_EVENT_S* get() const { return ev_; }

private:
    OX_EVENT_S* ev_ = nullptr;
};

TEST_F(HttpFaults, AbortEventEndsAWaitForTheAnswer) {
    FaultReply r = FaultReply::ok("late");
    r.delayMs = 10000;
    server.push(r);
    AbortEvent abort;
    ASSERT_TRUE(abort.get());
    ASSERT_EQ(c()->setEvent(c(), abort.get()), OX_OK);
    std::thread poster([&] {
        for (int i = 0; i < 500 && server.requests().empty(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        abort.get()->post(abort.get());
    });
    HTTPStatus st{};
    EXPECT_EQ(get(&st), OX_HTTP_ABORTED);
    poster.join();
    EXPECT_EQ(c()->state, htStateClosed);
    c()->setEvent(c(), nullptr);
}

TEST_F(HttpFaults, AbortEventStopsSending) {
    AbortEvent abort;
    ASSERT_EQ(c()->sendRequest(c(), httpPut, "/k", 2, nullptr, 0, nullptr, 100, nullptr, 0, OX_FALSE), OX_OK);
    c()->setEvent(c(), abort.get());
    abort.get()->post(abort.get());
    EXPECT_EQ(c()->sendData(c(), std::string(100, 'x').data(), 100), OX_HTTP_ABORTED);
    EXPECT_EQ(c()->state, htStateClosed);
}

TEST_F(HttpFaults, DetectsAnIdleSocketTheServerClosed) {
    FaultReply r = FaultReply::ok("first");  // no "Connection: close": the client believes it kept
    r.closeAfter = true;
    server.push(r);
    server.push(FaultReply::ok("second"));
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "first");
    EXPECT_EQ(c()->state, htStateResponseRead);
    ASSERT_TRUE(server.waitForClosed(1));
    auto second = oxtest::exchange(c(), httpGet, "/");
    EXPECT_EQ(second.sendStatus, OX_OK);
    EXPECT_EQ(second.body, "second");
    EXPECT_EQ(server.requests().at(1).connection, 2u);
}

TEST_F(HttpFaults, SendsARequestAgainWhenAReusedSocketDiesUnanswered) {
    FaultReply hangUp;
    hangUp.hangUp = true;  // as if the idle close crossed the request on the wire
    server.push(FaultReply::ok("first"));
    server.push(hangUp);
    server.push(FaultReply::ok("second"));
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "first");
    auto second = oxtest::exchange(c(), httpGet, "/");
    EXPECT_EQ(second.readStatus, OX_OK);
    EXPECT_EQ(second.body, "second");
    EXPECT_EQ(c()->requestCount, 1);
    EXPECT_EQ(server.requests().size(), 3u);
}

TEST_F(HttpFaults, NeverSendsAStreamedBodyAgain) {
    FaultReply hangUp;
    hangUp.hangUp = true;
    hangUp.answerBeforeBody = true;
    server.push(FaultReply::ok("first"));
    server.push(hangUp);
    oxtest::exchange(c(), httpGet, "/");
    ASSERT_EQ(c()->sendRequest(c(), httpPut, "/k", 2, nullptr, 0, nullptr, 3, nullptr, 0, OX_FALSE), OX_OK);
    c()->sendData(c(), "abc", 3);
    HTTPStatus st{};
    OXStatus s = c()->readResponse(c(), &st);
    EXPECT_TRUE(s == OX_HTTP_PEER_CLOSED || s == OX_HTTP_CONNECTION_RESET) << std::hex << s;
    EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(HttpFaults, OpenReplacesAnIdleSocketTheServerClosed) {
    FaultReply r = FaultReply::ok("first");
    r.closeAfter = true;
    server.push(r);
    oxtest::exchange(c(), httpGet, "/");
    ASSERT_TRUE(server.waitForClosed(1));
    EXPECT_EQ(c()->open(c()), OX_OK) << "a dead socket is not 'already open'";
}

TEST_F(HttpFaults, ServesAServerThatClosesAfterThreeRequests) {
    for (int i = 1; i <= 6; ++i) {
        FaultReply r = FaultReply::ok(std::to_string(i));
        r.closeAfter = i % 3 == 0;
        server.push(r);
    }
    for (int i = 1; i <= 6; ++i) {
        if (i == 4) {
            ASSERT_TRUE(server.waitForClosed(1));
        }
        EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, std::to_string(i));
    }
    EXPECT_EQ(server.connectionsAccepted(), 2u);
}

TEST_F(HttpFaults, GarbageStatusLinesAreMalformed) {
    for (const char* garbage : {"HTTX/1.1 200 OK\r\n\r\n", "HTTP/1.1 2OO OK\r\n\r\n", "HTTP/2.0 200 OK\r\n\r\n",
                                "HTTP/1.1 200OK\r\n\r\n", "HTTP/1.1 099 Low\r\n\r\n", "\x16\x03\x01\x02\xa5\r\n\r\n",
                                "HTTP/1.1 200 OK\r\nBad Header: x\r\n\r\n", "HTTP/1.1 200 OK\r\n folded\r\n\r\n",
                                "HTTP/1.1 200 OK\r\nNoColon\r\n\r\n"}) {
        EXPECT_EQ(headStatus(raw(garbage)), OX_HTTP_MALFORMED_RESPONSE) << garbage;
        EXPECT_EQ(c()->state, htStateClosed);
    }
}

TEST_F(HttpFaults, OversizeHeadsAreRefused) {
    EXPECT_EQ(headStatus(raw("HTTP/1.1 200 OK\r\nX-Big: " + std::string(70000, 'a') + "\r\n\r\n")),
              OX_HTTP_HEAD_TOO_LARGE);
    std::string many = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 300; ++i) many += "X-" + std::to_string(i) + ": v\r\n";
    EXPECT_EQ(headStatus(raw(many + "\r\n")), OX_HTTP_HEAD_TOO_LARGE);
    expectFreshStart();
}

TEST_F(HttpFaults, MalformedFramingIsNamed) {
    EXPECT_EQ(headStatus(raw("HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 6\r\n\r\nhello")),
              OX_HTTP_BAD_CONTENT_LENGTH);
    EXPECT_EQ(headStatus(raw("HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n")), OX_HTTP_BAD_CONTENT_LENGTH);
    server.push(raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nhello\r\n0\r\n\r\n"));
    HTTPStatus st{};
    ASSERT_EQ(get(&st), OX_OK);
    OXStatus last;
    oxtest::readAllData(c(), &last);
    EXPECT_EQ(last, OX_HTTP_BAD_CHUNK);
}

TEST_F(HttpFaults, ServerErrorsWithoutABodyAreTransient) {
    EXPECT_EQ(headStatus(FaultReply::status(500, "Internal Server Error")), OX_HTTP_SERVER_ERROR_NO_BODY);
    EXPECT_EQ(headStatus(FaultReply::status(503, "Service Unavailable")), OX_HTTP_UNAVAILABLE_NO_BODY);
    EXPECT_TRUE(oxHttpIsTransient(OX_HTTP_SERVER_ERROR_NO_BODY));
    EXPECT_TRUE(oxHttpIsTransient(OX_HTTP_UNAVAILABLE_NO_BODY));
}

TEST_F(HttpFaults, ServerErrorsWithADocumentAreNotTransient) {
    const std::string slowDown = "<Error><Code>SlowDown</Code></Error>";
    EXPECT_EQ(headStatus(FaultReply::status(503, "Slow Down", slowDown)), OX_HTTP_UNAVAILABLE);
    EXPECT_EQ(headStatus(FaultReply::status(500, "Internal Server Error", "<Error/>")), OX_HTTP_SERVER_ERROR);
    EXPECT_FALSE(oxHttpIsTransient(OX_HTTP_UNAVAILABLE));
}

TEST_F(HttpFaults, MapsHttpStatusesThroughTheTable) {
    struct Case {
        int code;
        OXStatus expected;
    };
    const Case cases[] = {{200, OX_HTTP_OK},        {201, OX_HTTP_CREATED},       {206, OX_HTTP_PARTIAL_CONTENT},
                          {299, OX_HTTP_OTHER_SUCCESS}, {301, OX_HTTP_MOVED_PERMANENTLY}, {307, OX_HTTP_TEMPORARY_REDIRECT},
                          {399, OX_HTTP_REDIRECT},  {400, OX_HTTP_BAD_REQUEST},   {403, OX_HTTP_FORBIDDEN},
                          {404, OX_HTTP_NOT_FOUND}, {409, OX_HTTP_CONFLICT},      {416, OX_HTTP_RANGE_NOT_SATISFIABLE},
                          {418, OX_HTTP_CLIENT_ERROR}, {501, OX_HTTP_NOT_IMPLEMENTED}, {504, OX_HTTP_GATEWAY_TIMEOUT},
                          {599, OX_HTTP_SERVER_ERROR}};
    for (const Case& k : cases) EXPECT_EQ(headStatus(FaultReply::status(k.code, "Any", "body")), k.expected) << k.code;
}

TEST_F(HttpFaults, ARetryLoopGetsPastTwoSlowDowns) {
    server.push(FaultReply::status(503, "Slow Down"));
    server.push(FaultReply::status(503, "Slow Down"));
    server.push(FaultReply::ok("finally"));
    OXStatus result = OX_FAILED;
    int attempts = 0;
    for (; attempts < 3; ++attempts) {
        HTTPStatus st{};
        OXStatus s = get(&st);
        result = s == OX_OK ? st.message : s;
        if (!oxHttpIsTransient(result)) break;
        c()->close(c());
    }
    EXPECT_EQ(result, OX_HTTP_OK);
    EXPECT_EQ(attempts, 2);
}

TEST_F(HttpFaults, RefusedConnectionsFailToConnect) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    ASSERT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len), 0);
    ::close(fd);  // nothing listens there now
    auto refused = connect("127.0.0.1", ntohs(addr.sin_port));
    EXPECT_EQ(refused->open(refused.get()), OX_HTTP_CONNECT_FAILED);
    EXPECT_EQ(refused->tcpError, ECONNREFUSED);
    EXPECT_EQ(refused->state, htStateClosed);
}

TEST(HttpStatuses, EachHasASentenceInTheCatalogue) {
    for (OXStatus st :
         {OX_SOCKET_FAILED, OX_SOCKET_TIMED_OUT, OX_TLS_RECORD_FAILED, OX_HTTP_ALREADY_OPEN, OX_HTTP_WRONG_STATE,
          OX_HTTP_BAD_REQUEST_TEXT, OX_HTTP_BODY_OVERRUN, OX_HTTP_CONNECTION_RESET, OX_HTTP_RESPONSE_TRUNCATED,
          OX_HTTP_PEER_CLOSED, OX_HTTP_MALFORMED_RESPONSE, OX_HTTP_HEAD_TOO_LARGE, OX_HTTP_BAD_CHUNK,
          OX_HTTP_BAD_CONTENT_LENGTH, OX_HTTP_CONTINUE, OX_HTTP_OK, OX_HTTP_OTHER_SUCCESS, OX_HTTP_PARTIAL_CONTENT,
          OX_HTTP_REDIRECT, OX_HTTP_NOT_MODIFIED, OX_HTTP_BAD_REQUEST, OX_HTTP_FORBIDDEN, OX_HTTP_NOT_FOUND,
          OX_HTTP_PROXY_AUTH_REQUIRED, OX_HTTP_TOO_MANY_REQUESTS, OX_HTTP_CLIENT_ERROR, OX_HTTP_SERVER_ERROR,
          OX_HTTP_UNAVAILABLE, OX_HTTP_SERVER_ERROR_NO_BODY, OX_HTTP_UNAVAILABLE_NO_BODY,
          OX_HTTP_VERSION_NOT_SUPPORTED, OX_HTTP_HOST_NOT_FOUND, OX_HTTP_TUNNEL_REFUSED, OX_HTTP_CONNECT_FAILED,
          OX_HTTP_ABORTED, OX_TLS_HANDSHAKE_FAILED, OX_TLS_CERT_UNTRUSTED, OX_TLS_HOST_MISMATCH, OX_TLS_BAD_OPTIONS}) {
        const char* text = oxMessageText(st);
        ASSERT_NE(text, nullptr) << std::hex << st;
        EXPECT_EQ(std::string(text).back(), '.') << text;
    }
}

}  // namespace
