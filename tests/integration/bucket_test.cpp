// Bucket operations against the real RADOS Gateway: create with a canned ACL or grants, list
// buckets and contents over several pages, delete, acceleration, refused names and answers
// mapped to statuses. Virtual-hosted, plain and TLS; path style goes through the proxy
// (bucket_proxy_test.cpp).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bucketfixture.h"

namespace {

using oxtest::Connection;
using oxtest::entryNames;
using oxtest::Mode;
using oxtest::ScopedBucket;
using Entries = s3::Owned<OXArray_S>;
using BucketList = s3::Owned<OXS3BucketList>;

class Buckets : public oxtest::BucketFixture, public ::testing::WithParamInterface<Mode> {
protected:
    Connection open(const std::string& secret = {}) {
        return gateway(GetParam(), secret.empty() ? env.secretKey : secret);
    }
};

TEST_P(Buckets, CreatesWithACannedACLListsAndDeletes) {
    Connection c = open();
    ASSERT_TRUE(c);
    ScopedBucket bucket("canned");
    ASSERT_EQ(c->createBucket(c.get(), bucket.name.c_str(), oxs3PublicReadAccess, nullptr), OX_OK);
    const auto acl = oxtest::rawS3("GET", "/" + bucket.name, "acl");
    ASSERT_EQ(acl.status, 200) << acl.body;
    EXPECT_NE(acl.body.find("groups/global/AllUsers</URI></Grantee><Permission>READ<"), std::string::npos)
        << acl.body;

    BucketList list;
    ASSERT_EQ(c->getUserBuckets(c.get(), nullptr, list.out()), OX_OK);
    EXPECT_TRUE(oxtest::listsBucket(list.get(), bucket.name));
    EXPECT_EQ(oxtest::stringText(list->ownerId), env.userId);

    ASSERT_EQ(c->deleteBucket(c.get(), bucket.name.c_str()), OX_OK);
    ASSERT_EQ(c->getUserBuckets(c.get(), nullptr, list.out()), OX_OK);
    EXPECT_FALSE(oxtest::listsBucket(list.get(), bucket.name));
}

TEST_P(Buckets, CreatesWithGrants) {
    Connection c = open();
    ASSERT_TRUE(c);
    s3::Owned<OXS3ACL_S> acl;
    ASSERT_EQ(ext->createACL(ext, pool, acl.out()), OX_OK);
    ASSERT_EQ(acl->addUserIdsU8(acl.get(), oxs3ReadAccess, env.altUserId.c_str()), OX_OK);
    ASSERT_EQ(acl->addUserIdsU8(acl.get(), oxs3FullAccess, env.userId.c_str()), OX_OK);
    ScopedBucket bucket("grants");
    ASSERT_EQ(c->createBucket(c.get(), bucket.name.c_str(), oxs3AccessList, acl.get()), OX_OK);
    const auto read = oxtest::rawS3("GET", "/" + bucket.name, "acl");
    ASSERT_EQ(read.status, 200) << read.body;
    const size_t grantee = read.body.find("<ID>" + env.altUserId + "</ID>");
    ASSERT_NE(grantee, std::string::npos) << read.body;
    EXPECT_EQ(read.body.find("<Permission>READ</Permission>", grantee),
              read.body.find("<Permission>", grantee))
        << read.body;
}

TEST_P(Buckets, ListsContentsAcrossPagesInKeyOrder) {
    Connection c = open();
    ASSERT_TRUE(c);
    ScopedBucket bucket("pages");
    ASSERT_TRUE(bucket.create());
    for (const char* key : {"e", "a1", "d2", "b/", "b/x", "b/y", "b/z/w", "c/d/e", "a2", "d1", "a3"})
        ASSERT_TRUE(bucket.put(key, key)) << key;
    s3::setListingPageLimit(2);

    Entries page;
    s3::Owned<OXU8String> next;
    OXBoolean truncated = OX_FALSE;
    ASSERT_EQ(s3::getBucketContents(c.get(), bucket.name, "/", nullptr, true, page.out(), next.out(), &truncated, true),
              OX_OK);
    EXPECT_EQ(entryNames(page.get()), (std::vector<std::string>{"a1", "a2"}));
    EXPECT_TRUE(truncated && next) << "two keys a page must leave more to fetch";

    Entries all;
    ASSERT_EQ(c->getBucketContents(c.get(), bucket.name.c_str(), "/", all.out()), OX_OK);
    EXPECT_EQ(entryNames(all.get()), (std::vector<std::string>{"a1", "a2", "a3", "b/", "c/", "d1", "d2", "e"}));
    const auto* first = reinterpret_cast<const OXS3BucketEntry*>(all->items[0]);
    EXPECT_EQ(first->size, 2u);
    EXPECT_EQ(oxtest::stringText(first->ownerId), env.userId);

    // A directory lists relative to itself, without its own marker, with or without the "/".
    for (const char* dir : {"/b", "/b/"}) {
        ASSERT_EQ(c->getBucketContents(c.get(), bucket.name.c_str(), dir, all.out()), OX_OK) << dir;
        EXPECT_EQ(entryNames(all.get()), (std::vector<std::string>{"x", "y", "z/"})) << dir;
    }
}

TEST_P(Buckets, RefusesToDeleteANonEmptyBucketWithTheServersMessage) {
    Connection c = open();
    ASSERT_TRUE(c);
    ScopedBucket bucket("full");
    ASSERT_TRUE(bucket.create());
    ASSERT_TRUE(bucket.put("kept"));
    EXPECT_EQ(c->deleteBucket(c.get(), bucket.name.c_str()), OXS3_BUCKET_NOT_EMPTY);
    std::printf("RGW message for BucketNotEmpty: \"%s\"\n", oxtest::stringText(c->errorMessage).c_str());
    EXPECT_TRUE(c->errorMessage) << "the server's message is kept on the connection";
    // The next operation starts without it.
    BucketList list;
    ASSERT_EQ(c->getUserBuckets(c.get(), nullptr, list.out()), OX_OK);
    EXPECT_FALSE(c->errorMessage);
}

TEST_P(Buckets, WrongSecretIsRefused) {
    Connection c = open("not-the-secret");
    ASSERT_TRUE(c);
    BucketList list;
    EXPECT_EQ(c->getUserBuckets(c.get(), nullptr, list.out()), OXS3_SIGNATURE_DOES_NOT_MATCH);
    EXPECT_FALSE(list);
    ScopedBucket bucket("denied");
    ASSERT_TRUE(bucket.create());
    EXPECT_EQ(c->deleteBucket(c.get(), bucket.name.c_str()), OXS3_REQUEST_FORBIDDEN);
}

TEST_P(Buckets, MissingBucketIsNotFound) {
    Connection c = open();
    ASSERT_TRUE(c);
    ScopedBucket bucket("missing");
    Entries all;
    EXPECT_EQ(c->getBucketContents(c.get(), bucket.name.c_str(), "/", all.out()), OX_HTTP_NOT_FOUND);
    EXPECT_FALSE(all);
    EXPECT_EQ(c->deleteBucket(c.get(), bucket.name.c_str()), OX_HTTP_NOT_FOUND);
}

// Whatever the server answers, a bucket whose state is not known to be Enabled is read and
// written through the plain endpoint.
TEST_P(Buckets, AccelerationDegradesToUnknown) {
    Connection c = open();
    ASSERT_TRUE(c);
    ScopedBucket bucket("accel");
    ASSERT_TRUE(bucket.create());
    S3AccelerateState state = s3AccelerateEnabled;
    const OXStatus got = c->getAccelerate(c.get(), bucket.name.c_str(), &state);
    const OXStatus set = c->setAccelerate(c.get(), bucket.name.c_str(), s3AccelerateEnabled);
    std::printf("RGW acceleration: get 0x%x state %d; set Enabled 0x%x (%s)\n", got, state, set,
                oxtest::stringText(c->errorMessage).c_str());
    if (got != OX_OK) {
        EXPECT_EQ(state, s3AccelerateUnknown);
    }
    if (set == OX_OK) {
        ASSERT_EQ(c->getAccelerate(c.get(), bucket.name.c_str(), &state), OX_OK);
        EXPECT_EQ(state, s3AccelerateEnabled);
    }
    EXPECT_EQ(c->setAccelerate(c.get(), bucket.name.c_str(), s3AccelerateUnknown), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->setAccelerate(c.get(), bucket.name.c_str(), s3AccelerateNotSet), OX_INVALID_ARGUMENT);
}

TEST_P(Buckets, SignsWithGivenDates) {
    Connection c = open();
    ASSERT_TRUE(c);
    EXPECT_EQ(c->testauth(c.get(), "GET", "somebucket", "/", nullptr, "20130524", "20130524T000000Z"), OX_OK);
}

INSTANTIATE_TEST_SUITE_P(Modes, Buckets, ::testing::Values(Mode{false}, Mode{true}), oxtest::modeName);

// Invalid names never reach the network: this region's port has no server behind it.
class RefusedNames : public oxtest::BucketFixture {};

TEST_F(RefusedNames, AreRefusedBeforeAnyRequest) {
    Connection c = connect(addRegion("nowhere", "127.0.0.1", 1));
    ASSERT_TRUE(c);
    s3::Owned<OXArray_S> all;
    S3AccelerateState state = s3AccelerateEnabled;
    for (const char* name : {"Bad", "a..b", "10.20.30"}) {
        EXPECT_EQ(c->createBucket(c.get(), name, oxs3PrivateAccess, nullptr), OX_INVALID_ARGUMENT) << name;
        EXPECT_EQ(c->deleteBucket(c.get(), name), OX_INVALID_ARGUMENT) << name;
        EXPECT_EQ(c->getBucketContents(c.get(), name, "/", all.out()), OX_INVALID_ARGUMENT) << name;
        EXPECT_EQ(c->getAccelerate(c.get(), name, &state), OX_INVALID_ARGUMENT) << name;
        EXPECT_EQ(state, s3AccelerateUnknown);
        EXPECT_EQ(c->setAccelerate(c.get(), name, s3AccelerateEnabled), OX_INVALID_ARGUMENT) << name;
    }
    EXPECT_EQ(c->createBucket(c.get(), nullptr, oxs3PrivateAccess, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->getBucketContents(c.get(), "good-name", nullptr, all.out()), OX_INVALID_ARGUMENT);
    EXPECT_EQ(c->htConnection->state, htStateCreated) << "no connection was ever opened";
}

}  // namespace
