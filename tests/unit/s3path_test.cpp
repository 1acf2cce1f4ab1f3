// S3 paths and locations: the path syntax, the scheme strippers, explicit and default values,
// the printed form, and the checks before a connection is made for a location.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "conffixture.h"
#include "oxs3owned.h"
#include "oxs3path.h"
#include "regionhost.h"

namespace {

using oxtest::textOf;
using s3::Owned;

// What a parsed location holds, absent parts as nullopt.
struct Parsed {
    std::optional<std::string> keyId, secret, regionName, bucket, object;
    bool operator==(const Parsed&) const = default;
};

Parsed partsOf(const OXS3Location_S* l) {
    return {textOf(l->keyId), textOf(l->secretKey), textOf(l->regionName), textOf(l->bucketName),
            textOf(l->objectPath)};
}

class S3PathTest : public oxtest::RegionFixture {
protected:
    Owned<OXS3Location_S> parse(const char* path, OXStatus expected = OX_OK) {
        OXS3Location location = nullptr;
        EXPECT_EQ(ext->parseS3PathU8(ext, pool, path, &location), expected) << path;
        return Owned<OXS3Location_S>(location);
    }
    Owned<OXS3Location_S> create(const char* keyId, const char* secret, const char* token, AWSRegion region,
                                 const char* path, OXStatus expected = OX_OK) {
        OXS3Location location = nullptr;
        EXPECT_EQ(ext->createLocationU8(ext, pool, keyId, secret, token, region, path, &location), expected) << path;
        return Owned<OXS3Location_S>(location);
    }
    std::optional<std::string> printed(OXS3Location l, bool credentials, OXStatus expected = OX_OK) {
        OXU8String* text = nullptr;
        EXPECT_EQ(l->getPath(l, pool, credentials ? OX_TRUE : OX_FALSE, &text), expected);
        auto out = textOf(text);
        oxtest::release(text);
        return out;
    }
};

// ---- the path syntax

struct PathCase {
    const char* name;
    const char* path;
    Parsed expected;
};

class PathSyntax : public S3PathTest, public ::testing::WithParamInterface<PathCase> {};

TEST_P(PathSyntax, SplitsIntoItsParts) {
    auto location = parse(GetParam().path);
    ASSERT_TRUE(location);
    EXPECT_EQ(partsOf(location.get()), GetParam().expected);
    EXPECT_EQ(location->region, No_Region);
    EXPECT_EQ(location->sessionToken, nullptr);
}

const auto none = std::nullopt;

INSTANTIATE_TEST_SUITE_P(
    Paths, PathSyntax,
    ::testing::Values(PathCase{"BucketOnly", "s3://bk", {none, none, none, "bk", "/"}},
                      PathCase{"BucketAndObject", "s3://bk/a/b", {none, none, none, "bk", "a/b"}},
                      PathCase{"CredentialsWithColonInSecret",
                               "s3:/KID:SE:CR@eu-west-1/b/k",
                               {"KID", "SE:CR", "eu-west-1", "b", "k"}},
                      PathCase{"KeyIdWithoutSecret", "s3:/KID@uswest/b/k", {"KID", none, "uswest", "b", "k"}},
                      PathCase{"RegionOnly", "s3:/eu-west-1/bk/dir/obj", {none, none, "eu-west-1", "bk", "dir/obj"}},
                      PathCase{"NoSchemeMakesTheFirstPartTheRegion", "bk/key", {none, none, "bk", "key", "/"}},
                      PathCase{"NoSlashIsABucket", "bk", {none, none, none, "bk", "/"}},
                      PathCase{"UpperCaseScheme", "S3://bk/x", {none, none, none, "bk", "x"}},
                      PathCase{"TrailingSlashLeavesAnEmptyObject", "s3://bk/", {none, none, none, "bk", ""}},
                      PathCase{"EmptyBucket", "s3:///x", {none, none, none, none, "x"}},
                      PathCase{"Empty", "", {none, none, none, none, "/"}},
                      PathCase{"RegionAfterTheFirstAt", "s3:/a@b@c/bk", {"a", none, "b@c", "bk", "/"}},
                      PathCase{"SecretWithoutKeyId", "s3:/:SE@r/bk", {none, "SE", "r", "bk", "/"}},
                      PathCase{"SchemeElsewhereIsSkippedFromTheStart", "bucket/s3:/y", {none, none, "et", "s3:", "y"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(S3PathTest, AuthorityEndingInAtIsRefusedWithASentence) {
    oxtest::LogCapture log(ext->logger);
    OXS3Location location = reinterpret_cast<OXS3Location>(&log);
    EXPECT_EQ(ext->parseS3PathU8(ext, pool, "s3:/KID:SECRET@/b/k", &location), OXS3_PATH_AUTHORITY_ENDS_IN_AT);
    EXPECT_EQ(location, reinterpret_cast<OXS3Location>(&log)) << "the output was written on failure";
    EXPECT_TRUE(log.contains("The S3 path has \"@\" after its credentials but no region name."));
    EXPECT_FALSE(log.mentions("SECRET"));
}

TEST_F(S3PathTest, CredentialsInPathsNeverReachTheLog) {
    oxtest::LogCapture log(ext->logger);
    auto location = parse("s3:/KID:TOPSECRET@eu-west-1/bk/o");
    ASSERT_TRUE(location);
    EXPECT_FALSE(log.lines().empty());
    EXPECT_FALSE(log.mentions("TOPSECRET"));
}

TEST_F(S3PathTest, RefusesMissingArguments) {
    OXS3Location location = nullptr;
    EXPECT_EQ(ext->parseS3PathU8(ext, pool, nullptr, &location), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ext->parseS3PathU8(ext, nullptr, "s3://bk", &location), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ext->parseS3PathU8(ext, pool, "s3://bk", nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(location, nullptr);
}

TEST_F(S3PathTest, LocationIsAReferenceCountedInstanceWithItsSlots) {
    auto location = parse("s3://bk");
    ASSERT_TRUE(location);
    EXPECT_TRUE(location->instance.isType(location.get(), "oxs3Location"));
    EXPECT_FALSE(location->instance.isType(location.get(), "oxs3Connection"));
    EXPECT_EQ(location->instance.refCount, 1);
    EXPECT_EQ(location->pool, pool.get());
    EXPECT_EQ(location->oxs3, ext);
    EXPECT_NE(location->applyDefaultsU8, nullptr);
    EXPECT_NE(location->connectionForLocation, nullptr);
    EXPECT_NE(location->getPath, nullptr);
    ext->oxstring->retain(location.instance());
    location->instance.destroy(location.get());
    EXPECT_EQ(textOf(location->bucketName), "bk") << "released while a reference was left";
}

TEST_F(S3PathTest, RunningOutOfMemoryAtAnyStepGivesNoLocation) {
    for (int64_t countdown = 0;; ++countdown) {
        oxPoolFailAfter(pool, countdown);
        OXS3Location location = nullptr;
        const OXStatus st = ext->parseS3PathU8(ext, pool, "s3:/K:S@eu-west-1/bk/o", &location);
        oxPoolFailAfter(pool, -1);
        if (st == OX_OK) {
            EXPECT_GE(countdown, 6);
            Owned<OXS3Location_S> done(location);
            break;
        }
        EXPECT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(location, nullptr);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after failing at allocation " << countdown;
    }
}

// ---- the scheme strippers

class SchemeStripping : public S3PathTest {
protected:
    std::string strip(OXStatus (*fn)(OXS3Extension*, UTF8CStr, UTF8CStr*), const char* text) {
        UTF8CStr rest = nullptr;
        EXPECT_EQ(fn(ext, text, &rest), OX_OK);
        EXPECT_TRUE(rest >= text && rest <= text + std::strlen(text)) << "the rest is not a suffix of the text";
        return rest ? rest : "<null>";
    }
};

TEST_F(SchemeStripping, PrefixSkipsOneSlashSchemes) {
    EXPECT_EQ(strip(s3::stripBucketPrefix, "s3:/bk/x"), "bk/x");
    EXPECT_EQ(strip(s3::stripBucketPrefix, "S3:/bk"), "bk");
    EXPECT_EQ(strip(s3::stripBucketPrefix, "s3://bk"), "/bk");
    EXPECT_EQ(strip(s3::stripBucketPrefix, "bk/x"), "bk/x");
    EXPECT_EQ(strip(s3::stripBucketPrefix, "s3:bk"), "s3:bk");
}

TEST_F(SchemeStripping, BucketNameSkipsOnlyTwoSlashSchemes) {
    EXPECT_EQ(strip(s3::getBucketName, "s3://bk"), "bk");
    EXPECT_EQ(strip(s3::getBucketName, "S3://my.bucket"), "my.bucket");
    EXPECT_EQ(strip(s3::getBucketName, "s3:/bk"), "s3:/bk");
    EXPECT_EQ(strip(s3::getBucketName, "bk"), "bk");
    EXPECT_EQ(strip(s3::getBucketName, ""), "");
}

TEST_F(SchemeStripping, SchemeFoundAnywhereIsSkippedFromTheStart) {
    EXPECT_EQ(strip(s3::stripBucketPrefix, "abcds3:/x"), "s3:/x");
    EXPECT_EQ(strip(s3::getBucketName, "xx/s3://y"), "://y");
}

TEST_F(SchemeStripping, LogsEntryAndExitAtTraceLevel) {
    oxtest::LogCapture log(ext->logger);
    strip(s3::stripBucketPrefix, "s3:/bk");
    strip(s3::getBucketName, "s3://bk2");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "stripBucketPrefix [ENTER] inBucketName: s3:/bk",
                               "stripBucketPrefix [EXIT] outBucketName: bk  result=0x0",
                               "getBucketName [ENTER] inBucketName: s3://bk2",
                               "getBucketName [EXIT] outBucketName: bk2  result=0x0",
                           }));
}

TEST_F(SchemeStripping, RefusesAnAbsentText) {
    UTF8CStr rest = "untouched";
    EXPECT_EQ(s3::stripBucketPrefix(ext, nullptr, &rest), OX_INVALID_ARGUMENT);
    EXPECT_EQ(s3::getBucketName(ext, nullptr, &rest), OX_INVALID_ARGUMENT);
    EXPECT_STREQ(rest, "untouched");
    EXPECT_EQ(s3::getBucketName(ext, "s3://bk", nullptr), OX_INVALID_ARGUMENT);
}

// ---- create and apply-defaults

TEST_F(S3PathTest, CreateAddsArgumentsThePathLacks) {
    auto l = create("K", "S", "T", EU_Ireland_Region, "s3://bk/o");
    ASSERT_TRUE(l);
    EXPECT_EQ(partsOf(l.get()), (Parsed{"K", "S", "euireland", "bk", "o"}));
    EXPECT_EQ(textOf(l->sessionToken), "T");
    EXPECT_EQ(l->region, EU_Ireland_Region);
    EXPECT_EQ(ext->locationCreateU8, ext->createLocationU8);
}

TEST_F(S3PathTest, CreateResolvesARegionNamedInThePath) {
    auto l = create(nullptr, nullptr, nullptr, No_Region, "s3:/eu-west-1/bk");
    ASSERT_TRUE(l);
    EXPECT_EQ(l->region, EU_Ireland_Region);
    auto unknown = create(nullptr, nullptr, nullptr, No_Region, "s3:/nowhere/bk");
    EXPECT_EQ(unknown->region, Unknown_Region);
    auto without = create(nullptr, nullptr, nullptr, No_Region, "s3://bk");
    EXPECT_EQ(without->region, No_Region);
}

TEST_F(S3PathTest, CreateNamesACustomRegionByItsName) {
    ASSERT_EQ(ext->addCustomRegion(ext, "store", "h", 0, 0, nullptr, OX_FALSE, OX_FALSE, OX_TRUE, OX_FALSE), OX_OK);
    auto l = create("K", "S", nullptr, First_Custom_Region, "s3://bk");
    ASSERT_TRUE(l);
    EXPECT_EQ(textOf(l->regionName), "store");
    EXPECT_EQ(l->region, First_Custom_Region);
}

TEST_F(S3PathTest, EmptyArgumentsCountAsNotGiven) {
    auto l = create("", "", "", No_Region, "s3:/K:S@r/bk");
    ASSERT_TRUE(l);
    EXPECT_EQ(partsOf(l.get()), (Parsed{"K", "S", "r", "bk", "/"}));
    EXPECT_EQ(l->sessionToken, nullptr);
}

struct TwiceCase {
    const char* name;
    const char* keyId;
    const char* secret;
    AWSRegion region;
    const char* path;
    OXStatus status;
};

class GivenTwice : public S3PathTest, public ::testing::WithParamInterface<TwiceCase> {};

TEST_P(GivenTwice, FailsAndLeavesNothingBehind) {
    const TwiceCase& c = GetParam();
    OXS3Location location = nullptr;
    EXPECT_EQ(ext->createLocationU8(ext, pool, c.keyId, c.secret, nullptr, c.region, c.path, &location), c.status);
    EXPECT_EQ(location, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Values, GivenTwice,
    ::testing::Values(TwiceCase{"KeyId", "K2", nullptr, No_Region, "s3:/K@r/bk", OXS3_KEY_ID_GIVEN_TWICE},
                      TwiceCase{"Secret", nullptr, "S2", No_Region, "s3:/K:S@r/bk", OXS3_SECRET_GIVEN_TWICE},
                      TwiceCase{"Region", nullptr, nullptr, EU_Paris_Region, "s3:/r/bk", OXS3_REGION_GIVEN_TWICE},
                      TwiceCase{"RegionWithoutName", nullptr, nullptr, Test_Region, "s3://bk", OXS3_UNKNOWN_REGION},
                      TwiceCase{"BadPath", "K", nullptr, No_Region, "s3:/K@/bk", OXS3_PATH_AUTHORITY_ENDS_IN_AT}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(S3PathTest, DefaultsFillOnlyWhatIsMissing) {
    auto l = parse("s3:/KID@eu-west-1/bk");
    ASSERT_EQ(l->applyDefaultsU8(l.get(), "K2", "S2", "T2", "uswest"), OX_OK);
    EXPECT_EQ(partsOf(l.get()), (Parsed{"KID", "S2", "eu-west-1", "bk", "/"}));
    EXPECT_EQ(textOf(l->sessionToken), "T2");
    EXPECT_EQ(l->region, EU_Ireland_Region);
}

TEST_F(S3PathTest, DefaultRegionIsTakenWhenThePathHasNone) {
    auto l = parse("s3://bk");
    ASSERT_EQ(l->applyDefaultsU8(l.get(), nullptr, nullptr, nullptr, "useast"), OX_OK);
    EXPECT_EQ(textOf(l->regionName), "useast");
    EXPECT_EQ(l->region, US_East_Virginia_Region);
}

TEST_F(S3PathTest, NoRegionAnywhereLeavesTheRegionUnknown) {
    auto l = parse("s3://bk");
    ASSERT_EQ(l->applyDefaultsU8(l.get(), "K", "S", nullptr, nullptr), OX_OK);
    EXPECT_EQ(l->region, Unknown_Region);
    EXPECT_EQ(l->sessionToken, nullptr);
}

TEST_F(S3PathTest, DefaultsOutOfMemoryChangeNothing) {
    auto l = parse("s3://bk");
    for (int64_t countdown = 0; countdown < 4; ++countdown) {
        oxPoolFailAfter(pool, countdown);
        EXPECT_EQ(l->applyDefaultsU8(l.get(), "K", "S", "T", "useast"), OX_NO_MEMORY);
        oxPoolFailAfter(pool, -1);
        EXPECT_EQ(partsOf(l.get()), (Parsed{none, none, none, "bk", "/"}));
        EXPECT_EQ(l->sessionToken, nullptr);
        EXPECT_EQ(l->region, No_Region);
    }
}

// ---- the printed form

struct PrintCase {
    const char* name;
    const char* path;
    bool credentials;
    const char* expected;
};

class Printing : public S3PathTest, public ::testing::WithParamInterface<PrintCase> {};

TEST_P(Printing, JoinsThePartsWithoutASlashBeforeTheObject) {
    auto l = parse(GetParam().path);
    EXPECT_EQ(printed(l.get(), GetParam().credentials), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, Printing,
    ::testing::Values(PrintCase{"RegionBucketObject", "s3:/eu-west-1/bk/a/b", false, "eu-west-1:/bka/b"},
                      PrintCase{"BucketOnly", "s3:/eu-west-1/bk", false, "eu-west-1:/bk/"},
                      PrintCase{"WithKeyAndSecret", "s3:/KID:SE@eu-west-1/bk", true, "KID:SE@eu-west-1:/bk/"},
                      PrintCase{"CredentialsLeftOut", "s3:/KID:SE@eu-west-1/bk/o", false, "eu-west-1:/bko"},
                      PrintCase{"KeyIdOnly", "s3:/KID@r/bk/o", true, "KID@r:/bko"},
                      PrintCase{"SecretOnly", "s3:/:SE@r/bk", true, ":SE@r:/bk/"},
                      PrintCase{"NoRegionNoCredentials", "s3://bk/x", true, ":/bkx"},
                      PrintCase{"EmptyObject", "s3://bk/", false, ":/bk"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(S3PathTest, CredentialsWithoutRegionCannotBePrinted) {
    auto l = create("K", "S", nullptr, No_Region, "s3://bk");
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(printed(l.get(), true, OXS3_REGION_NOT_FOUND), std::nullopt);
    EXPECT_EQ(printed(l.get(), false), ":/bk/");
    EXPECT_FALSE(log.lines().empty());
}

TEST_F(S3PathTest, LocationWithoutBucketCannotBePrinted) {
    auto l = parse("s3:/r//x");
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(printed(l.get(), false, OXS3_LOCATION_NO_BUCKET), std::nullopt);
    EXPECT_TRUE(log.contains("The location has no bucket name."));
}

// ---- connections for locations

OXS3Extension* seenExt;
OX_POOL_S* seenPool;
OXBoolean seenSSL;
SSLOptions_S* seenOptions;
AWSRegion seenRegion;
std::string seenKey, seenSecret;
std::optional<std::string> seenToken;
OXStatus answer;
int madeConnection;

OXS3Connection fakeCreate(OXS3Extension* ext, OX_POOL_S* pool, OXBoolean useSSL, SSLOptions_S* options,
                          AWSRegion region, UTF8CStr key, UTF8CStr secret, UTF8CStr token, OXStatus* status) {
    seenExt = ext;
    seenPool = pool;
    seenSSL = useSSL;
    seenOptions = options;
    seenRegion = region;
    seenKey = key;
    seenSecret = secret;
    seenToken = token ? std::optional<std::string>(token) : std::nullopt;
    *status = answer;
    return answer == OX_OK ? reinterpret_cast<OXS3Connection>(&madeConnection) : nullptr;
}

class LocationConnection : public S3PathTest {
protected:
    void SetUp() override {
        S3PathTest::SetUp();
        saved_ = ext->createConnection;
        ext->createConnection = fakeCreate;
        answer = OX_OK;
        seenRegion = No_Region;
    }
    void TearDown() override {
        ext->createConnection = saved_;
        S3PathTest::TearDown();
    }
    OXStatus connect(OXS3Location l, bool ssl, SSLOptions_S* options, OXS3Connection* out) {
        return l->connectionForLocation(l, ssl ? OX_TRUE : OX_FALSE, options, out);
    }

private:
    decltype(OXS3Extension::createConnection) saved_ = nullptr;
};

TEST_F(LocationConnection, PassesTheLocationsValuesAndTLSOptions) {
    auto l = create("K", "S", "T", EU_Paris_Region, "s3://bk");
    auto* options = reinterpret_cast<SSLOptions_S*>(&answer);
    OXS3Connection c = nullptr;
    ASSERT_EQ(connect(l.get(), true, options, &c), OX_OK);
    EXPECT_EQ(c, reinterpret_cast<OXS3Connection>(&madeConnection));
    EXPECT_EQ(seenExt, ext);
    EXPECT_EQ(seenPool, pool.get());
    EXPECT_TRUE(seenSSL);
    EXPECT_EQ(seenOptions, options);
    EXPECT_EQ(seenRegion, EU_Paris_Region);
    EXPECT_EQ(seenKey, "K");
    EXPECT_EQ(seenSecret, "S");
    EXPECT_EQ(seenToken, "T");
}

TEST_F(LocationConnection, WithoutTLSTheOptionsAreNotPassed) {
    auto l = create("K", "S", nullptr, EU_Paris_Region, "s3://bk");
    OXS3Connection c = nullptr;
    ASSERT_EQ(connect(l.get(), false, reinterpret_cast<SSLOptions_S*>(&answer), &c), OX_OK);
    EXPECT_FALSE(seenSSL);
    EXPECT_EQ(seenOptions, nullptr);
    EXPECT_EQ(seenToken, std::nullopt);
}

TEST_F(LocationConnection, CreationFailureIsReturnedWithNoConnection) {
    auto l = create("K", "S", nullptr, EU_Paris_Region, "s3://bk");
    answer = OX_HTTP_HOST_NOT_FOUND;
    OXS3Connection c = nullptr;
    EXPECT_EQ(connect(l.get(), false, nullptr, &c), OX_HTTP_HOST_NOT_FOUND);
    EXPECT_EQ(c, nullptr);
}

struct MissingCase {
    const char* name;
    const char* keyId;
    const char* secret;
    AWSRegion region;
    const char* path;
    OXStatus status;
};

class MissingForConnection : public LocationConnection, public ::testing::WithParamInterface<MissingCase> {};

TEST_P(MissingForConnection, FailsBeforeAskingForAConnection) {
    const MissingCase& m = GetParam();
    auto l = create(m.keyId, m.secret, nullptr, m.region, m.path);
    OXS3Connection c = nullptr;
    EXPECT_EQ(connect(l.get(), true, nullptr, &c), m.status);
    EXPECT_EQ(c, nullptr);
    EXPECT_EQ(seenRegion, No_Region) << "the connection slot was called";
}

INSTANTIATE_TEST_SUITE_P(
    Values, MissingForConnection,
    ::testing::Values(MissingCase{"NoRegion", "K", "S", No_Region, "s3://bk", OXS3_REGION_NOT_FOUND},
                      MissingCase{"UnknownRegion", "K", "S", No_Region, "s3:/nowhere/bk", OXS3_REGION_NOT_FOUND},
                      MissingCase{"NoKeyId", nullptr, "S", EU_Paris_Region, "s3://bk", OXS3_LOCATION_NO_KEY_ID},
                      MissingCase{"NoSecret", "K", nullptr, EU_Paris_Region, "s3://bk", OXS3_LOCATION_NO_SECRET}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(LocationConnection, WithoutConnectionSupportSaysSo) {
    ext->createConnection = nullptr;
    auto l = create("K", "S", nullptr, EU_Paris_Region, "s3://bk");
    oxtest::LogCapture log(ext->logger);
    OXS3Connection c = nullptr;
    EXPECT_EQ(connect(l.get(), false, nullptr, &c), OX_NOT_SUPPORTED);
    EXPECT_EQ(c, nullptr);
    EXPECT_TRUE(log.mentions("cannot make connections"));
}

}  // namespace
