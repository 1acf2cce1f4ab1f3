// Expect: 100-continue: the head goes first, the body only once the server asked for it, and a
// refusal before any body leaves no half-sent request on a reused socket.
#include <gtest/gtest.h>

#include <string>

#include "httptest.h"

namespace {

using namespace oxtest;
using HttpContinue = FaultServerTest;

FaultReply continuing(FaultReply r, bool continueFirst) {
    r.continueFirst = continueFirst;
    r.answerBeforeBody = !continueFirst;
    return r;
}

TEST_F(HttpContinue, SendsTheBodyAfterTheInterimAnswerOrWithoutWaitingForIt) {
    server.push(continuing(FaultReply::ok("stored"), true));
    server.push(continuing(FaultReply::ok("done"), true));
    ASSERT_EQ(sendHead(c(), httpPut, "/b/k", 11, true), OX_OK);
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
    EXPECT_EQ(readAllData(c(), &bodyStatus), "stored");

    ASSERT_EQ(sendHead(c(), httpPut, "/b/k", 3, true), OX_OK);
    ASSERT_EQ(c()->sendData(c(), "abc", 3), OX_OK);  // not waiting for 100: the interim answer is skipped
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.status, 200);
    const auto req = server.requests();
    EXPECT_NE(req.at(0).head.find("\r\nExpect: 100-continue\r\n"), std::string::npos) << req.at(0).head;
    EXPECT_NE(req.at(0).head.find("\r\nContent-Length: 11\r\n"), std::string::npos) << req.at(0).head;
    EXPECT_EQ(req.at(0).body, "hello world");
    EXPECT_EQ(req.at(1).body, "abc");
    EXPECT_EQ(server.connectionsAccepted(), 1u);
}

TEST_F(HttpContinue, ReportsARefusalBeforeAnyBodyAndDropsTheSocketOnlyWhenABodyWasAnnounced) {
    const std::string denied = "<Error><Code>AccessDenied</Code></Error>";
    server.push(continuing(FaultReply::ok("empty is fine"), false));
    server.push(continuing(FaultReply::status(403, "Forbidden", denied), false));
    server.push(FaultReply::ok("next"));
    HTTPStatus st{};
    ASSERT_EQ(sendHead(c(), httpPut, "/b/k", 0, true), OX_OK);
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_FALSE(c()->closeRequired) << "no body was announced";

    ASSERT_EQ(sendHead(c(), httpPut, "/b/k", 1 << 20, true), OX_OK);
    ASSERT_EQ(c()->readResponse(c(), &st), OX_OK);
    EXPECT_EQ(st.status, 403);
    EXPECT_EQ(st.message, OX_HTTP_FORBIDDEN);
    EXPECT_EQ(c()->state, htStateResponseRead);
    EXPECT_TRUE(c()->closeRequired) << "the server may still expect the announced body";
    OXStatus bodyStatus;
    EXPECT_EQ(readAllData(c(), &bodyStatus), denied);
    EXPECT_EQ(c()->state, htStateClosedByServer);
    EXPECT_TRUE(server.requests().at(1).body.empty());
    EXPECT_EQ(exchange(c(), httpGet, "/").body, "next");
    EXPECT_EQ(server.connectionsAccepted(), 2u);
}

}  // namespace
