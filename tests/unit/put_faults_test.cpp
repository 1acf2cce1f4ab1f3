// Puts against the scriptable loopback server, for the answers a real server will not give on
// demand: transient failures on every attempt, and a refused 100-continue.
#include <gtest/gtest.h>

#include "connfixture.h"
#include "faultserver.h"
#include "oxs3chunked.h"

namespace {

using oxtest::FaultReply;

class PutFaults : public oxtest::FaultServerFixture {
protected:
    void SetUp() override {
        FaultServerFixture::SetUp();
        conn->useWriteThreads = OX_FALSE;
        server.push(FaultReply::status(404, "Not Found"));  // the acceleration question: not enabled
    }
    static FaultReply unavailableAfterBody() {
        FaultReply reply = FaultReply::status(503, "Slow Down");
        reply.continueFirst = true;
        return reply;
    }
};

TEST_F(PutFaults, ThreeTransientFailuresStillReportSuccess) {
    for (int i = 0; i < 3; ++i) server.push(unavailableAfterBody());
    server.push(FaultReply::ok("never asked for"));
    EXPECT_EQ(conn->putObject(conn.get(), "bucket", "/key", oxs3AccessDefault, nullptr, nullptr, nullptr, OX_FALSE,
                              "data", 4),
              OX_OK);
    EXPECT_EQ(server.requests().size(), 4u) << "the question and three attempts";
}

TEST_F(PutFaults, ATransientFailureIsRetriedUntilThePutIsStored) {
    server.push(unavailableAfterBody());
    FaultReply stored = FaultReply::ok("");
    stored.continueFirst = true;
    server.push(stored);
    EXPECT_EQ(conn->putObject(conn.get(), "bucket", "/key", oxs3AccessDefault, nullptr, nullptr, nullptr, OX_FALSE,
                              "data", 4),
              OX_OK);
    ASSERT_EQ(server.requests().size(), 3u);
    EXPECT_EQ(server.requests().back().body, "data");
}

TEST_F(PutFaults, ARefusedContinueIsMappedAndNotRetried) {
    FaultReply refused = FaultReply::status(403, "Forbidden",
                                            "<?xml version=\"1.0\"?><Error><Code>AccessDenied</Code>"
                                            "<Message>Access Denied</Message></Error>",
                                            "Content-Type: application/xml\r\n");
    refused.answerBeforeBody = true;
    server.push(refused);
    EXPECT_EQ(conn->startChunkedPut(conn.get(), "bucket", "/key", oxs3AccessDefault, nullptr, nullptr, nullptr,
                                    OX_FALSE, 100, 10),
              OXS3_ACCESS_DENIED);
    EXPECT_EQ(oxtest::stringText(conn->errorMessage), "Access Denied");
    EXPECT_EQ(conn->activeChunk, nullptr);
    EXPECT_EQ(server.requests().size(), 2u);
    EXPECT_EQ(server.requests().back().body, "") << "no body before the server accepts the head";
}

}  // namespace
