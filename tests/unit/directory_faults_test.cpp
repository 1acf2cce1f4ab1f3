// Deletes against the scriptable loopback server, for answers a real server gives only with
// versioning or MFA: the delete-marker header, and the order a tree delete walks its pages in.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "connfixture.h"
#include "faultserver.h"

namespace {

using oxtest::FaultReply;

std::string listingPage(const std::vector<std::string>& keys, const std::string& nextToken) {
    std::string body = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><ListBucketResult><Name>b</Name>";
    for (const std::string& key : keys) body += "<Contents><Key>" + key + "</Key><Size>0</Size></Contents>";
    body += nextToken.empty() ? "<IsTruncated>false</IsTruncated>"
                              : "<IsTruncated>true</IsTruncated><NextContinuationToken>" + nextToken +
                                    "</NextContinuationToken>";
    return body + "</ListBucketResult>";
}

std::string requestLine(const oxtest::ReceivedRequest& request) {
    return request.head.substr(0, request.head.find("\r\n"));
}

using DeleteFaults = oxtest::FaultServerFixture;

TEST_F(DeleteFaults, OnlyExactlyTrueMarksADeleteMarker) {
    for (const char* value : {"true", "TRUE", "truer", "yes"})
        server.push(FaultReply::status(204, "No Content", "", std::string("x-amz-delete-marker: ") + value + "\r\n"));
    std::vector<OXBoolean> markers;
    for (int i = 0; i < 4; ++i) {
        OXBoolean marker = OX_FALSE;
        ASSERT_EQ(conn->deleteObject(conn.get(), "bucket", "/key", "SERIAL 123456", "v1", &marker), OX_OK);
        markers.push_back(marker);
    }
    EXPECT_EQ(markers, (std::vector<OXBoolean>{OX_TRUE, OX_FALSE, OX_FALSE, OX_FALSE}));
    const auto requests = server.requests();
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requestLine(requests[0]), "DELETE /key?versionId=v1 HTTP/1.1");
    EXPECT_NE(requests[0].head.find("x-amz-mfa: SERIAL 123456\r\n"), std::string::npos) << requests[0].head;
}

TEST_F(DeleteFaults, ATreeIsDeletedLastListedFirstAcrossPages) {
    server.push(FaultReply::ok(listingPage({"t/", "t/a"}, "token-1"), "Content-Type: application/xml\r\n"));
    server.push(FaultReply::ok(listingPage({"t/b/", "t/b/c"}, ""), "Content-Type: application/xml\r\n"));
    server.setFallback(FaultReply::status(204, "No Content"));
    s3::Owned<OXArray_S> errors;
    ASSERT_EQ(conn->deleteDirectory(conn.get(), "bucket", "/t", nullptr, nullptr, OX_TRUE, errors.out()), OX_OK);
    EXPECT_FALSE(errors);

    std::vector<std::string> lines;
    for (const auto& request : server.requests()) lines.push_back(requestLine(request));
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_NE(lines[1].find("continuation-token=token-1"), std::string::npos) << lines[1];
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 2, lines.end()),
              (std::vector<std::string>{"DELETE /t/b/c HTTP/1.1", "DELETE /t/b/ HTTP/1.1", "DELETE /t/a HTTP/1.1",
                                        "DELETE /t/ HTTP/1.1"}));
}

TEST_F(DeleteFaults, TheFirstFailedDeleteStopsTheWalk) {
    server.push(FaultReply::ok(listingPage({"t/", "t/a", "t/b"}, ""), "Content-Type: application/xml\r\n"));
    server.push(FaultReply::status(204, "No Content"));
    server.push(FaultReply::status(403, "Forbidden"));
    s3::Owned<OXArray_S> errors;
    EXPECT_NE(conn->deleteDirectory(conn.get(), "bucket", "/t", nullptr, nullptr, OX_TRUE, errors.out()), OX_OK);
    EXPECT_EQ(server.requests().size(), 3u) << "t/ is never asked for";
}

}  // namespace
