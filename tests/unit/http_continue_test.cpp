// Expect: 100-continue: the head goes first, the body only once the server asked for it, and a
// refusal before any body leaves no half-sent request on a reused socket.
#include <gtest/gtest.h>

#include <string>

#include "faultserver.h"
#include "httptest.h"

namespace {

using oxtest::FaultReply;
using oxtest::FaultServer;

class HttpContinue : public oxtest::HttpTest {
protected:
    FaultServer server;
    oxtest::HttpConnection conn;

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(server) << server.error();
        conn = connect("127.0.0.1", server.port());
    }
    HTConnection c() const { return conn.get(); }

    OXStatus sendHead(int64_t length) {
        return c()->sendRequest(c(), httpPut, "/b/k", 4, nullptr, 0, nullptr, length, nullptr, 0, OX_TRUE);
    }
};

TEST_F(HttpContinue, SendsTheBodyAfterTheInterimAnswer) {
    FaultReply r = FaultReply::ok("stored");
    r.continueFirst = true;
    server.push(r);
    ASSERT_EQ(sendHead(11), OX_OK);
    EXPECT_EQ(c()->state, htStateContReqSent);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.status, 100);
    EXPECT_EQ(st.message, OX_HTTP_CONTINUE);
    EXPECT_EQ(c()->state, htStateContinueRead);
    ASSERT_EQ(c()->sendData(c(), "hello ", 6), OX_OK);
    ASSERT_EQ(c()->sendData(c(), "world", 5), OX_OK);
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.message, OX_HTTP_OK);
    OXStatus bodyStatus;
    EXPECT_EQ(oxtest::readAllData(c(), &bodyStatus), "stored");
    auto req = server.requests().at(0);
    EXPECT_NE(req.head.find("\r\nExpect: 100-continue\r\n"), std::string::npos) << req.head;
    EXPECT_NE(req.head.find("\r\nContent-Length: 11\r\n"), std::string::npos) << req.head;
    EXPECT_EQ(req.body, "hello world");
}

TEST_F(HttpContinue, ReportsARefusalBeforeAnyBodyAndDropsTheSocket) {
    FaultReply refused = FaultReply::status(403, "Forbidden", "<Error><Code>AccessDenied</Code></Error>");
    refused.answerBeforeBody = true;
    server.push(refused);
    server.push(FaultReply::ok("next"));
    ASSERT_EQ(sendHead(1 << 20), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.status, 403);
    EXPECT_EQ(st.message, OX_HTTP_FORBIDDEN);
    EXPECT_EQ(c()->state, htStateResponseRead);
    EXPECT_TRUE(c()->closeRequired) << "the server may still expect the announced body";
    OXStatus bodyStatus;
    EXPECT_EQ(oxtest::readAllData(c(), &bodyStatus), "<Error><Code>AccessDenied</Code></Error>");
    EXPECT_EQ(c()->state, htStateClosedByServer);
    EXPECT_TRUE(server.requests().at(0).body.empty());
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "next");
    EXPECT_EQ(server.connectionsAccepted(), 2u);
}

TEST_F(HttpContinue, KeepsTheSocketWhenNoBodyWasAnnounced) {
    FaultReply r = FaultReply::ok("empty is fine");
    r.answerBeforeBody = true;
    server.push(r);
    server.push(FaultReply::ok("again"));
    ASSERT_EQ(sendHead(0), OX_OK);
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_FALSE(c()->closeRequired);
    EXPECT_EQ(oxtest::exchange(c(), httpGet, "/").body, "again");
    EXPECT_EQ(server.connectionsAccepted(), 1u);
}

TEST_F(HttpContinue, SkipsAnInterimAnswerThatWasNotAwaited) {
    FaultReply r = FaultReply::ok("done");
    r.continueFirst = true;
    server.push(r);
    ASSERT_EQ(sendHead(3), OX_OK);
    ASSERT_EQ(c()->sendData(c(), "abc", 3), OX_OK);  // not waiting for 100
    HTTPStatus st{};
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.status, 200);
    EXPECT_EQ(server.requests().at(0).body, "abc");
}

TEST_F(HttpContinue, RefusesABodyGivenWithTheHead) {
    EXPECT_EQ(c()->sendRequest(c(), httpPut, "/k", 2, nullptr, 0, nullptr, -1, "body", 4, OX_TRUE),
              OX_INVALID_ARGUMENT);
}

}  // namespace
