// The send cycle against the loopback fault server: which failures are tried again and how
// often, the operation's own retry text, the status after the last attempt, and keeping the
// HTTP connection alive until 90 requests or 18 idle seconds (the clock is injected).
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>

#include "conffixture.h"
#include "connfixture.h"
#include "faultserver.h"
#include "oxs3connection.h"
#include "oxs3request.h"
#include "oxs3send.h"

namespace {

using oxtest::Connection;
using oxtest::FaultReply;

constexpr s3::SendCycleOp kOp = {"testOp", U"testOp: Request failed with result 0x%x. Retrying."};
constexpr s3::SendCycleOp kNumberedOp = {"copyBlock", U"copyBlock: Block %d failed with result 0x%x. Retrying.", true,
                                         s3::AfterRetries::fixedStatus, OX_FAILED};

OXDateTime clockOffset = 0;
OXDateTime shiftedClock() { return oxzdtgmt() + clockOffset; }

// A loopback port nothing listens on.
uint16_t closedPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    ::close(fd);
    return ntohs(a.sin_port);
}

class SendCycle : public oxtest::FaultServerFixture {
protected:
    std::optional<oxtest::LogCapture> log;

    void SetUp() override {
        FaultServerFixture::SetUp();
        log.emplace(ext->logger);
    }
    void TearDown() override {
        log.reset();
        s3::setKeepAliveClock(nullptr);
        FaultServerFixture::TearDown();
    }

    // One GET of the service, its body read and dropped.
    static OXStatus getOnce(s3::Attempt& a) {
        oxtest::Dictionary headers;
        OXStatus st = s3::startRequest(a.connection, a.http, nullptr, "GET", "/", "", nullptr, s3::kEmptyPayloadHash, 0,
                                       headers.out(), oxzdtgmt());
        if (st == OX_OK) st = s3::sendBuiltRequest(a, httpGet, nullptr, headers.get(), 0, nullptr, 0);
        HTTPStatus status{};
        if (st == OX_OK) st = s3::readAnswer(a, status, {OX_HTTP_OK});
        void* body = nullptr;
        OXMemSize length = 0;
        if (st == OX_OK) st = a.http->readData(a.http, a.connection->pool, &body, &length);
        if (body) a.connection->pool->memFree(a.connection->pool, body);
        return st;
    }
    OXStatus run(const s3::SendCycleOp& op = kOp, int item = 0) {
        return s3::sendCycle(conn.get(), op, getOnce, nullptr, item);
    }

    size_t retryLines(std::string_view text) const {
        return std::count(log->lines().begin(), log->lines().end(), std::string(text));
    }
};

TEST_F(SendCycle, TransientAnswersAreTriedAgainWithTheOperationsText) {
    server.push(FaultReply::status(503, "Slow Down"));
    server.push(FaultReply::status(500, "Internal Error"));
    server.push(FaultReply::ok("done"));
    EXPECT_EQ(run(), OX_OK);
    EXPECT_EQ(server.requests().size(), 3u);
    EXPECT_EQ(retryLines("testOp: Request failed with result 0x8bbff845. Retrying."), 1u);
    EXPECT_EQ(retryLines("testOp: Request failed with result 0x8bbff844. Retrying."), 1u);
    EXPECT_FALSE(log->mentions("Maximum retries exceeded"));
}

TEST_F(SendCycle, ThreeTransientFailuresEndWithTheLastStatus) {
    FaultReply hangUp;
    hangUp.hangUp = true;
    for (int i = 0; i < 3; ++i) server.push(hangUp);
    server.push(FaultReply::ok("never asked for"));
    EXPECT_EQ(run(), OX_HTTP_PEER_CLOSED);
    EXPECT_EQ(server.requests().size(), 3u);
    EXPECT_EQ(retryLines("testOp: Request failed with result 0x8bbff807. Retrying."), 2u);
    EXPECT_TRUE(log->contains("testOp: Maximum retries exceeded."));
}

TEST_F(SendCycle, OperationChoosesItsStatusAfterTheLastAttemptAndNumbersItsText) {
    FaultReply reset = FaultReply::ok("x");
    reset.resetAfter = 0;
    for (int i = 0; i < 3; ++i) server.push(reset);
    EXPECT_EQ(run(kNumberedOp, 7), OX_FAILED);
    EXPECT_EQ(retryLines("copyBlock: Block 7 failed with result 0x8bbff805. Retrying."), 2u);
    EXPECT_TRUE(log->contains("copyBlock: Maximum retries exceeded."));
}

TEST_F(SendCycle, ErrorAnswersAreNotTriedAgain) {
    server.push(FaultReply::status(400, "Bad Request"));
    server.push(FaultReply::status(404, "Not Found",
                                   "<?xml version=\"1.0\"?><Error><Code>NoSuchKey</Code><Message>No such key.</Message>"
                                   "</Error>",
                                   "Content-Type: application/xml\r\n"));
    EXPECT_EQ(run(), OX_HTTP_BAD_REQUEST);
    EXPECT_EQ(run(), OXS3_NO_SUCH_KEY);
    EXPECT_EQ(oxtest::stringText(conn->errorMessage), "No such key.");
    EXPECT_EQ(server.requests().size(), 2u);
    EXPECT_FALSE(log->mentions("Retrying"));
}

TEST_F(SendCycle, ConnectionThatCannotBeMadeIsTriedAgain) {
    Connection nowhere = connect(addRegion("nowhere", "127.0.0.1", closedPort()));
    EXPECT_EQ(s3::sendCycle(nowhere.get(), kOp, getOnce), OX_HTTP_CONNECT_FAILED);
    EXPECT_EQ(retryLines("testOp: Request failed with result 0x8bbff84b. Retrying."), 2u);
}

TEST_F(SendCycle, EndOfDataFromTheLastReadIsSuccess) {
    server.push(FaultReply::ok(""));
    EXPECT_EQ(s3::sendCycle(conn.get(), kOp, [](s3::Attempt& a) {
                  const OXStatus st = getOnce(a);
                  return st == OX_OK ? OX_END_OF_DATA : st;
              }),
              OX_OK);
}

TEST_F(SendCycle, KeepsOneSocketForNinetyRequestsThenReconnects) {
    server.setFallback(FaultReply::ok("x"));
    for (int i = 0; i < 90; ++i) ASSERT_EQ(run(), OX_OK) << "request " << i + 1;
    EXPECT_EQ(server.connectionsAccepted(), 1u);
    EXPECT_EQ(conn->htConnection->requestCount, 90);
    ASSERT_EQ(run(), OX_OK);
    EXPECT_EQ(server.connectionsAccepted(), 2u);
    EXPECT_EQ(server.requests().back().connection, 2u);
}

TEST_F(SendCycle, ReconnectsOnceIdleForEighteenSecondsOrClosed) {
    server.setFallback(FaultReply::ok("x"));
    s3::setKeepAliveClock(shiftedClock);
    clockOffset = 0;
    ASSERT_EQ(run(), OX_OK);
    clockOffset = 17.5;
    ASSERT_EQ(run(), OX_OK);
    EXPECT_EQ(server.connectionsAccepted(), 1u);
    clockOffset = 17.5 + 18.5;  // measured from the end of the second request
    ASSERT_EQ(run(), OX_OK);
    EXPECT_EQ(server.connectionsAccepted(), 2u);
    ASSERT_EQ(conn->close(conn.get()), OX_OK);
    EXPECT_EQ(run(), OX_OK) << "a closed connection is reopened";
    EXPECT_EQ(server.connectionsAccepted(), 3u);
}

}  // namespace
