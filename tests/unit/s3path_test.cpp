// S3 paths and locations: the path syntax, the scheme strippers, explicit and default values,
// the printed form, and the checks before a connection is made for a location.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "conffixture.h"
#include "oxs3owned.h"
#include "oxs3path.h"

namespace {

using oxtest::textOf;
using s3::Owned;

// key id|secret|region name|bucket|object|session token ("-" when absent), then the region number.
std::string describe(const OXS3Location_S* l) {
    if (!l) return "no location";
    std::string out;
    for (const OXU8String* s : {l->keyId, l->secretKey, l->regionName, l->bucketName, l->objectPath, l->sessionToken})
        out.append(textOf(s).value_or("-")).append("|");
    if (l->region == No_Region) return out + "none";
    return out + (l->region == Unknown_Region ? "unknown" : std::to_string(l->region));
}

class S3PathTest : public oxtest::ExtensionFixture {
protected:
    Owned<OXS3Location_S> parse(const char* path) {
        OXS3Location location = nullptr;
        EXPECT_EQ(ext->parseS3PathU8(ext, pool, path, &location), OX_OK) << path;
        return Owned<OXS3Location_S>(location);
    }
    Owned<OXS3Location_S> create(const char* keyId, const char* secret, const char* token, AWSRegion region,
                                 const char* path, OXStatus expected = OX_OK) {
        OXS3Location location = nullptr;
        EXPECT_EQ(ext->createLocationU8(ext, pool, keyId, secret, token, region, path, &location), expected) << path;
        return Owned<OXS3Location_S>(location);
    }
    std::string printed(OXS3Location l, bool credentials) {
        OXU8String* text = nullptr;
        OXStatus st = l->getPath(l, pool, credentials ? OX_TRUE : OX_FALSE, &text);
        std::string out = st == OX_OK ? textOf(text).value_or("<null>") : "failed " + std::to_string(st);
        oxtest::release(text);
        return out;
    }
};

TEST_F(S3PathTest, PathsSplitIntoTheirParts) {
    const std::pair<const char*, const char*> cases[] = {
        {"s3://bk", "-|-|-|bk|/|-|none"},           {"s3://bk/a/b", "-|-|-|bk|a/b|-|none"},
        {"s3:/KID:SE:CR@eu-west-1/b/k", "KID|SE:CR|eu-west-1|b|k|-|none"},
        {"s3:/KID@uswest/b/k", "KID|-|uswest|b|k|-|none"}, {"s3:/eu-west-1/bk/o", "-|-|eu-west-1|bk|o|-|none"},
        {"bk/key", "-|-|bk|key|/|-|none"},           {"bk", "-|-|-|bk|/|-|none"},
        {"S3://bk/x", "-|-|-|bk|x|-|none"},          {"s3://bk/", "-|-|-|bk||-|none"},
        {"s3:///x", "-|-|-|-|x|-|none"},             {"", "-|-|-|-|/|-|none"},
        {"s3:/a@b@c/bk", "a|-|b@c|bk|/|-|none"},     {"s3:/:SE@r/bk", "-|SE|r|bk|/|-|none"},
        {"bucket/s3:/y", "-|-|et|s3:|y|-|none"},  // a scheme anywhere is skipped from the start
    };
    for (const auto& [path, expected] : cases) EXPECT_EQ(describe(parse(path).get()), expected) << path;
}

TEST_F(S3PathTest, CredentialsNeverReachTheLogAndAnEmptyRegionIsRefused) {
    oxtest::LogCapture log(ext->logger);
    ASSERT_TRUE(parse("s3:/KID:TOPSECRET@eu-west-1/bk/o"));
    OXS3Location location = reinterpret_cast<OXS3Location>(&log);
    EXPECT_EQ(ext->parseS3PathU8(ext, pool, "s3:/KID:SECRET@/b/k", &location), OXS3_PATH_AUTHORITY_ENDS_IN_AT);
    EXPECT_EQ(location, reinterpret_cast<OXS3Location>(&log)) << "the output was written on failure";
    EXPECT_TRUE(log.contains("The S3 path has \"@\" after its credentials but no region name."));
    EXPECT_FALSE(log.mentions("SECRET"));
    location = nullptr;
    EXPECT_EQ(ext->parseS3PathU8(ext, pool, nullptr, &location), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ext->parseS3PathU8(ext, nullptr, "s3://bk", &location), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ext->parseS3PathU8(ext, pool, "s3://bk", nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(location, nullptr);
}

TEST_F(S3PathTest, LocationIsAReferenceCountedInstance) {
    auto location = parse("s3://bk");
    EXPECT_TRUE(location->instance.isType(location.get(), "oxs3Location"));
    ext->oxstring->retain(location.instance());
    location->instance.destroy(location.get());
    EXPECT_EQ(textOf(location->bucketName), "bk") << "released while a reference was left";
}

TEST_F(S3PathTest, StrippersSkipTheirSchemeFromTheStartWhereverItIsFound) {
    using Strip = OXStatus (*)(OXS3Extension*, UTF8CStr, UTF8CStr*);
    const std::tuple<Strip, const char*, const char*> cases[] = {
        {s3::stripBucketPrefix, "S3:/bk/x", "bk/x"}, {s3::stripBucketPrefix, "s3://bk", "/bk"},
        {s3::stripBucketPrefix, "s3:bk", "s3:bk"},   {s3::stripBucketPrefix, "abcds3:/x", "s3:/x"},
        {s3::getBucketName, "S3://my.bucket", "my.bucket"}, {s3::getBucketName, "s3:/bk", "s3:/bk"},
        {s3::getBucketName, "", ""},                 {s3::getBucketName, "xx/s3://y", "://y"},
    };
    for (const auto& [strip, text, expected] : cases) {
        UTF8CStr rest = nullptr;
        ASSERT_EQ(strip(ext, text, &rest), OX_OK) << text;
        EXPECT_TRUE(rest >= text && rest <= text + std::strlen(text)) << "the rest is not a suffix of " << text;
        EXPECT_STREQ(rest, expected) << text;
    }
    UTF8CStr rest = "untouched";
    EXPECT_EQ(s3::stripBucketPrefix(ext, nullptr, &rest), OX_INVALID_ARGUMENT);
    EXPECT_EQ(s3::getBucketName(ext, nullptr, &rest), OX_INVALID_ARGUMENT);
    EXPECT_STREQ(rest, "untouched");
    EXPECT_EQ(s3::getBucketName(ext, "s3://bk", nullptr), OX_INVALID_ARGUMENT);
}

TEST_F(S3PathTest, CreateAddsTheArgumentsAndResolvesTheRegion) {
    ASSERT_EQ(ext->addCustomRegion(ext, "store", "h", 0, 0, nullptr, OX_FALSE, OX_FALSE, OX_TRUE, OX_FALSE), OX_OK);
    EXPECT_EQ(describe(create("K", "S", "T", EU_Ireland_Region, "s3://bk/o").get()), "K|S|euireland|bk|o|T|4");
    EXPECT_EQ(describe(create("K", "S", nullptr, First_Custom_Region, "s3://bk").get()), "K|S|store|bk|/|-|38");
    EXPECT_EQ(describe(create(nullptr, nullptr, nullptr, No_Region, "s3:/eu-west-1/b").get()), "-|-|eu-west-1|b|/|-|4");
    EXPECT_EQ(describe(create(nullptr, nullptr, nullptr, No_Region, "s3:/x/bk").get()), "-|-|x|bk|/|-|unknown");
    EXPECT_EQ(describe(create(nullptr, nullptr, nullptr, No_Region, "s3://bk").get()), "-|-|-|bk|/|-|none");
    EXPECT_EQ(describe(create("", "", "", No_Region, "s3:/K:S@r/bk").get()), "K|S|r|bk|/|-|unknown");  // "": not given
}

TEST_F(S3PathTest, CreateRefusesValuesGivenTwiceOrARegionWithoutName) {
    EXPECT_FALSE(create("K2", nullptr, nullptr, No_Region, "s3:/K@r/bk", OXS3_KEY_ID_GIVEN_TWICE));
    EXPECT_FALSE(create(nullptr, "S2", nullptr, No_Region, "s3:/K:S@r/bk", OXS3_SECRET_GIVEN_TWICE));
    EXPECT_FALSE(create(nullptr, nullptr, nullptr, EU_Paris_Region, "s3:/r/bk", OXS3_REGION_GIVEN_TWICE));
    EXPECT_FALSE(create(nullptr, nullptr, nullptr, Test_Region, "s3://bk", OXS3_UNKNOWN_REGION));
    EXPECT_FALSE(create("K", nullptr, nullptr, No_Region, "s3:/K@/bk", OXS3_PATH_AUTHORITY_ENDS_IN_AT));
}

// Allocation failures in parse and create leave nothing behind.
TEST_F(S3PathTest, CreateRunningOutOfMemoryAtAnyStepGivesNoLocation) {
    for (int64_t countdown = 0;; ++countdown) {
        oxPoolFailAfter(pool, countdown);
        OXS3Location location = nullptr;
        const OXStatus st =
            ext->createLocationU8(ext, pool, nullptr, "S", "T", No_Region, "s3:/K@eu-west-1/bk/o", &location);
        oxPoolFailAfter(pool, -1);
        Owned<OXS3Location_S> done(location);
        if (st == OX_OK) break;
        EXPECT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(location, nullptr);
        ASSERT_EQ(pool->blocksInUse(pool), 0u) << "after failing at allocation " << countdown;
    }
}

TEST_F(S3PathTest, DefaultsFillOnlyWhatIsMissingAndChangeNothingWithoutMemory) {
    auto l = parse("s3:/KID@eu-west-1/bk");
    ASSERT_EQ(l->applyDefaultsU8(l.get(), "K2", "S2", "T2", "uswest"), OX_OK);
    EXPECT_EQ(describe(l.get()), "KID|S2|eu-west-1|bk|/|T2|4");
    l = parse("s3://bk");
    ASSERT_EQ(l->applyDefaultsU8(l.get(), "K", "S", nullptr, nullptr), OX_OK);
    EXPECT_EQ(describe(l.get()), "K|S|-|bk|/|-|unknown");
    l = parse("s3://bk");
    for (int64_t countdown = 0; countdown < 4; ++countdown) {
        oxPoolFailAfter(pool, countdown);
        EXPECT_EQ(l->applyDefaultsU8(l.get(), "K", "S", "T", "useast"), OX_NO_MEMORY);
        oxPoolFailAfter(pool, -1);
        EXPECT_EQ(describe(l.get()), "-|-|-|bk|/|-|none");
    }
    ASSERT_EQ(l->applyDefaultsU8(l.get(), nullptr, nullptr, nullptr, "useast"), OX_OK);
    EXPECT_EQ(describe(l.get()), "-|-|useast|bk|/|-|1");
}

TEST_F(S3PathTest, PrintingJoinsThePartsWithoutASlashBeforeTheObject) {
    const std::tuple<const char*, bool, std::string> cases[] = {
        {"s3:/eu-west-1/bk/a/b", false, "eu-west-1:/bka/b"},     {"s3:/eu-west-1/bk", false, "eu-west-1:/bk/"},
        {"s3:/KID:SE@eu-west-1/bk", true, "KID:SE@eu-west-1:/bk/"}, {"s3:/KID:SE@r/bk/o", false, "r:/bko"},
        {"s3:/KID@r/bk/o", true, "KID@r:/bko"},                   {"s3:/:SE@r/bk", true, ":SE@r:/bk/"},
        {"s3://bk/x", true, ":/bkx"},                             {"s3://bk/", false, ":/bk"},
        {"s3:/r//x", false, "failed " + std::to_string(OXS3_LOCATION_NO_BUCKET)},
    };
    for (const auto& [path, withCredentials, expected] : cases)
        EXPECT_EQ(printed(parse(path).get(), withCredentials), expected) << path;
    auto l = create("K", "S", nullptr, No_Region, "s3://bk");
    EXPECT_EQ(printed(l.get(), true), "failed " + std::to_string(OXS3_REGION_NOT_FOUND)) << "credentials need a region";
    EXPECT_EQ(printed(l.get(), false), ":/bk/");
}

// What the connection slot was asked for: TLS, options, region, key, secret and token.
std::string asked;
OXStatus answer;
OX_POOL_S* locationPool;
int madeConnection;

// A location's values and the TLS options (with TLS only) reach the connection slot; a location
// without a region, key id or secret never does; the slot's failure is returned.
TEST_F(S3PathTest, ConnectionsForLocationsGetTheLocationsValues) {
    locationPool = pool;
    ext->createConnection = [](OXS3Extension*, OX_POOL_S* p, OXBoolean useSSL, SSLOptions_S* options, AWSRegion region,
                               UTF8CStr key, UTF8CStr secret, UTF8CStr token, OXStatus* status) {
        asked = std::string(p == locationPool ? "" : "another pool|") + (useSSL ? "tls" : "plain") +
                (options ? "+options|" : "|") + std::to_string(region) + "|" + key + "|" + secret + "|" +
                (token ? token : "-");
        *status = answer;
        return answer == OX_OK ? reinterpret_cast<OXS3Connection>(&madeConnection) : nullptr;
    };
    struct Case {
        const char *keyId, *secret, *token;
        AWSRegion region;
        const char* path;
        bool tls;
        OXStatus answer, status;
        const char* asked;
    };
    const Case cases[] = {
        {"K", "S", "T", EU_Paris_Region, "s3://bk", true, OX_OK, OX_OK, "tls+options|20|K|S|T"},
        {"K", "S", nullptr, EU_Paris_Region, "s3://bk", false, OX_OK, OX_OK, "plain|20|K|S|-"},
        {"K", "S", nullptr, EU_Paris_Region, "s3://bk", false, OX_HTTP_HOST_NOT_FOUND, OX_HTTP_HOST_NOT_FOUND,
         "plain|20|K|S|-"},
        {"K", "S", nullptr, No_Region, "s3://bk", true, OX_OK, OXS3_REGION_NOT_FOUND, ""},
        {"K", "S", nullptr, No_Region, "s3:/nowhere/bk", true, OX_OK, OXS3_REGION_NOT_FOUND, ""},
        {nullptr, "S", nullptr, EU_Paris_Region, "s3://bk", true, OX_OK, OXS3_LOCATION_NO_KEY_ID, ""},
        {"K", nullptr, nullptr, EU_Paris_Region, "s3://bk", true, OX_OK, OXS3_LOCATION_NO_SECRET, ""},
    };
    auto* options = reinterpret_cast<SSLOptions_S*>(&answer);
    for (const Case& c : cases) {
        asked.clear();
        answer = c.answer;
        auto l = create(c.keyId, c.secret, c.token, c.region, c.path);
        OXS3Connection made = nullptr;
        EXPECT_EQ(l->connectionForLocation(l.get(), c.tls, options, &made), c.status) << c.asked;
        EXPECT_EQ(made, c.status == OX_OK ? reinterpret_cast<OXS3Connection>(&madeConnection) : nullptr);
        EXPECT_EQ(asked, c.asked);
    }
    ext->createConnection = nullptr;
    oxtest::LogCapture log(ext->logger);
    OXS3Connection made = nullptr;
    auto l = create("K", "S", nullptr, EU_Paris_Region, "s3://bk");
    EXPECT_EQ(l->connectionForLocation(l.get(), OX_FALSE, nullptr, &made), OX_NOT_SUPPORTED);
    EXPECT_EQ(made, nullptr);
    EXPECT_TRUE(log.mentions("cannot make connections"));
}

}  // namespace
