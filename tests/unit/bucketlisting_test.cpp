// What the real server never does on demand, scripted on loopback: a bucket list redirected to
// another host, and a bucket whose delimited listing of "/" is empty.
#include <gtest/gtest.h>

#include <string>

#include "connfixture.h"
#include "faultserver.h"
#include "oxs3bucket.h"

namespace {

using oxtest::Connection;
using oxtest::FaultReply;

const std::string kXml = "Content-Type: application/xml\r\n";

using BucketListing = oxtest::FaultServerFixture;

TEST_F(BucketListing, FollowsTemporaryRedirects) {
    oxtest::FaultServer moved;
    ASSERT_TRUE(moved) << moved.error();
    const std::string location = "Location: http://127.0.0.1:" + std::to_string(moved.port()) + "/\r\n";
    server.push(FaultReply::status(307, "Temporary Redirect", "", location));
    moved.push(FaultReply::status(307, "Temporary Redirect", "", location));
    moved.push(FaultReply::ok("<ListAllMyBucketsResult><Owner><ID>me</ID></Owner><Buckets><Bucket><Name>there</Name>"
                              "</Bucket></Buckets></ListAllMyBucketsResult>",
                              kXml));
    s3::Owned<OXS3BucketList> list;
    ASSERT_EQ(conn->getUserBuckets(conn.get(), nullptr, list.out()), OX_OK);
    EXPECT_TRUE(list && list->bucketList && list->bucketList->count == 1);
    EXPECT_EQ(oxtest::stringText(list->ownerId), "me");
    ASSERT_EQ(moved.requests().size(), 2u);
    EXPECT_NE(moved.requests()[1].head.find("\r\nHost: 127.0.0.1:" + std::to_string(moved.port()) + "\r\n"),
              std::string::npos)
        << moved.requests()[1].head;
}

TEST_F(BucketListing, EmptyDelimitedRootIsListedFlat) {
    server.push(FaultReply::ok("<ListBucketResult><IsTruncated>false</IsTruncated></ListBucketResult>", kXml));
    server.push(FaultReply::ok("<ListBucketResult><IsTruncated>false</IsTruncated><Contents><Key>d/x</Key>"
                               "<Size>3</Size></Contents></ListBucketResult>",
                               kXml));
    s3::Owned<OXArray_S> all;
    ASSERT_EQ(conn->getBucketContents(conn.get(), "bucket", "/", all.out()), OX_OK);
    ASSERT_EQ(all->count, 1);
    EXPECT_EQ(oxtest::stringText(reinterpret_cast<OXS3BucketEntry*>(all->items[0])->name), "d/x");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_NE(requests[0].head.find("delimiter=%2F"), std::string::npos) << requests[0].head;
    EXPECT_EQ(requests[1].head.find("delimiter"), std::string::npos) << requests[1].head;
}

}  // namespace
