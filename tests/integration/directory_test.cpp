// Directories and deletion against the real RADOS Gateway: placeholders, the directory test,
// deleting empty and non-empty directories, whole trees over several listing pages, the
// multi-object delete and single deletes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bucketfixture.h"
#include "oxs3dir.h"

namespace {

using oxtest::Connection;
using oxtest::ScopedBucket;
using Entries = s3::Owned<OXArray_S>;

class Directories : public oxtest::BucketFixture {
protected:
    void SetUp() override {
        BucketFixture::SetUp();
        if (HasFatalFailure()) return;
        c = gateway(oxtest::Mode{false}, env.secretKey);
        ASSERT_TRUE(c);
    }

    bool exists(const ScopedBucket& bucket, const std::string& key) {
        return oxtest::rawS3("HEAD", "/" + bucket.name + "/" + key).status == 200;
    }
    bool isDir(const ScopedBucket& bucket, const char* path) {
        OXBoolean dir = OX_FALSE;
        EXPECT_EQ(c->pathIsDir(c.get(), bucket.name.c_str(), path, &dir), OX_OK) << path;
        return dir;
    }

    Connection c;
};

TEST_F(Directories, CreatesTestsListsAndDeletesAnEmptyDirectory) {
    ScopedBucket bucket("dir");
    ASSERT_TRUE(bucket.create());
    bucket.keys.push_back("made/");
    ASSERT_EQ(c->createDirectory(c.get(), bucket.name.c_str(), "/made", oxs3AccessDefault, nullptr, nullptr, OX_FALSE),
              OX_OK);
    EXPECT_TRUE(exists(bucket, "made/")) << "the placeholder carries the trailing /";

    EXPECT_TRUE(isDir(bucket, "/made"));
    EXPECT_TRUE(isDir(bucket, "/made/"));
    EXPECT_TRUE(isDir(bucket, "/"));
    EXPECT_FALSE(isDir(bucket, "/absent"));
    OXBoolean dir = OX_FALSE;
    const std::string inPath = "/" + bucket.name + "/made";
    EXPECT_EQ(c->pathIsDir(c.get(), nullptr, inPath.c_str(), &dir), OX_OK);
    EXPECT_TRUE(dir) << "the bucket may lead the path";
    EXPECT_EQ(c->pathIsDir(c.get(), bucket.name.c_str(), "made", &dir), OXS3_PATH_NOT_ABSOLUTE);

    Entries all;
    ASSERT_EQ(c->getBucketContents(c.get(), bucket.name.c_str(), "/", all.out()), OX_OK);
    EXPECT_EQ(oxtest::entryNames(all.get()), std::vector<std::string>{"made/"});

    OXBoolean marker = OX_TRUE;
    ASSERT_EQ(c->deleteDirectory(c.get(), bucket.name.c_str(), "/made/", nullptr, &marker, OX_FALSE, nullptr), OX_OK);
    EXPECT_FALSE(marker);
    EXPECT_FALSE(exists(bucket, "made/"));
    EXPECT_FALSE(isDir(bucket, "/made"));
}

TEST_F(Directories, RefusesToDeleteADirectoryThatIsNotEmpty) {
    ScopedBucket bucket("full");
    ASSERT_TRUE(bucket.create());
    ASSERT_TRUE(bucket.put("d/", ""));
    ASSERT_TRUE(bucket.put("d/kept"));
    OXBoolean marker = OX_FALSE;
    EXPECT_EQ(c->deleteDirectory(c.get(), bucket.name.c_str(), "/d", nullptr, &marker, OX_FALSE, nullptr),
              OXS3_DIRECTORY_NOT_EMPTY);
    EXPECT_TRUE(exists(bucket, "d/"));
    EXPECT_TRUE(exists(bucket, "d/kept"));
    EXPECT_EQ(c->deleteDirectory(c.get(), bucket.name.c_str(), "/d", nullptr, &marker, OX_TRUE, nullptr),
              OX_INVALID_ARGUMENT)
        << "a tree delete needs somewhere to put its errors";
}

TEST_F(Directories, DeletesATreeOverSeveralListingPagesAndNothingBeside) {
    ScopedBucket bucket("tree");
    ASSERT_TRUE(bucket.create());
    const std::vector<std::string> under = {"t/", "t/a", "t/b/", "t/b/c", "t/b/d/e", "t/t/", "t/z"};
    for (const std::string& key : under) ASSERT_TRUE(bucket.put(key, "")) << key;
    for (const char* key : {"t", "tx/y", "s"}) ASSERT_TRUE(bucket.put(key)) << key;
    s3::setListingPageLimit(2);

    Entries errors;
    OXBoolean marker = OX_FALSE;
    ASSERT_EQ(c->deleteDirectory(c.get(), bucket.name.c_str(), "/t", nullptr, &marker, OX_TRUE, errors.out()), OX_OK);
    EXPECT_FALSE(errors);
    for (const std::string& key : under) EXPECT_FALSE(exists(bucket, key)) << key;
    for (const char* key : {"t", "tx/y", "s"}) EXPECT_TRUE(exists(bucket, key)) << key << " is not under t/";
}

TEST_F(Directories, DeleteFilesReportsEachKeyAndDeletesThoseThatExist) {
    ScopedBucket bucket("multi");
    ASSERT_TRUE(bucket.create());
    ASSERT_TRUE(bucket.put("one"));
    ASSERT_TRUE(bucket.put("two"));
    s3::Owned<OXU8String> xml;
    ASSERT_EQ(s3::startDeleteXML(ext->oxstring, pool, xml.out()), OX_OK);
    const std::string objects = "<Object><Key>one</Key></Object><Object><Key>missing</Key></Object>";
    ASSERT_EQ(xml->extHandle->appendU8(xml.get(), objects.data(), objects.size()), OX_OK);
    Entries errors;
    ASSERT_EQ(s3::deleteFiles(c.get(), bucket.name.c_str(), nullptr, xml.get(), errors.out()), OX_OK);
    EXPECT_FALSE(errors) << "a missing key counts as deleted";
    EXPECT_TRUE(oxtest::stringText(xml.get()).ends_with("</Object></Delete>\n"));
    EXPECT_FALSE(exists(bucket, "one"));
    EXPECT_TRUE(exists(bucket, "two"));
}

TEST_F(Directories, DeletingAMissingKeySucceedsWithoutADeleteMarker) {
    ScopedBucket bucket("single");
    ASSERT_TRUE(bucket.create());
    ASSERT_TRUE(bucket.put("present"));
    OXBoolean marker = OX_TRUE;
    EXPECT_EQ(c->deleteObject(c.get(), bucket.name.c_str(), "/never-there", nullptr, nullptr, &marker), OX_OK);
    EXPECT_FALSE(marker);
    EXPECT_EQ(c->deleteObject(c.get(), bucket.name.c_str(), "/present", nullptr, nullptr, &marker), OX_OK);
    EXPECT_FALSE(exists(bucket, "present"));
    EXPECT_EQ(c->deleteObject(c.get(), bucket.name.c_str(), "/", nullptr, nullptr, &marker), OX_INVALID_ARGUMENT)
        << "a DELETE of the root would remove the bucket";
}

TEST_F(Directories, SplitsTheBucketOffAPath) {
    s3::Owned<OXU8String> name, rest;
    ASSERT_EQ(s3::bucketNameFromPath(ext, pool, "/b/x/y", name.out(), rest.out()), OX_OK);
    EXPECT_EQ(oxtest::stringText(name.get()), "b");
    EXPECT_EQ(oxtest::stringText(rest.get()), "/x/y");
    for (const char* path : {"b", "/b", "/b/", ""})
        EXPECT_EQ(s3::bucketNameFromPath(ext, pool, path, name.out(), rest.out()), OXS3_LOCATION_NO_BUCKET) << path;
}

}  // namespace
