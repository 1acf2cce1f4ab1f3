// Bucket-name rules, through the extension record's slot and the status-returning check.
#include <gtest/gtest.h>

#include <string>

#include "conffixture.h"
#include "oxs3bucket.h"

namespace {

class BucketName : public oxtest::ExtensionFixture {};

TEST_F(BucketName, FollowsTheNamingRules) {
    const struct {
        std::string name;
        bool valid;
    } cases[] = {
        {"abc", true},
        {std::string(63, 'a'), true},
        {"my.bucket-1", true},
        {"s3://my.bucket-1", true},  // the scheme is taken off first
        {"10.20a", true},
        {"0bucket9", true},
        {"ab", false},
        {std::string(64, 'a'), false},
        {"s3://ab", false},
        {"my..bucket", false},
        {"-bucket", false},
        {"bucket-", false},
        {".bucket", false},
        {"bucket.", false},
        {"MyBucket", false},
        {"my_bucket", false},
        {"my bucket", false},
        {"10.20", false},
        {"10.20.30", false},
        {"192.168.1.1", false},
    };
    for (const auto& c : cases) {
        OXBoolean valid = !c.valid;
        ASSERT_EQ(s3::oxs3IsValidBucketName(ext, c.name.c_str(), &valid), OX_OK) << c.name;
        EXPECT_EQ(valid, c.valid ? OX_TRUE : OX_FALSE) << c.name;
        EXPECT_EQ(ext->validBucketName(ext, c.name.data(), c.name.size()), valid) << c.name;
    }
}

TEST_F(BucketName, AbsentNameIsAnInvalidArgument) {
    OXBoolean valid = OX_TRUE;
    EXPECT_EQ(s3::oxs3IsValidBucketName(ext, nullptr, &valid), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ext->validBucketName(ext, nullptr, 0), OX_FALSE);
    // A counted name is not read past its length.
    EXPECT_EQ(ext->validBucketName(ext, "abcdef", 2), OX_FALSE);
    EXPECT_EQ(ext->validBucketName(ext, "abcdef", 3), OX_TRUE);
}

}  // namespace
