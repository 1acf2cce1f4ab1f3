// The AWS side of the settings: environment snapshot, default paths under the home directory,
// the shared config and credentials files with their path and profile rules, the service
// account, and what each failure becomes.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "conffixture.h"
#include "ox/instance.h"

namespace {

using oxtest::release;
using oxtest::textOf;

constexpr const char* kBadLine = "[default]\naws_access_key_id = k\nthis line has no equals sign\n";
constexpr const char* kBadSection = "[default]\naws_access_key_id = k\n[unterminated\n";

// ---- the environment ----

class EnvironmentTest : public oxtest::ConfigFixture {
protected:
    OXStatus lookUp(const char* variable, OXU8String** value) {
        std::u32string name = U"OSENV." + oxtest::wide(variable);
        return s3::getEnvVar(oxHostInit(), ext->oxstring, pool, oxtest::chars(name), name.size(), value);
    }

    std::optional<std::string> valueOf(const char* variable) {
        OXU8String* value = nullptr;
        EXPECT_EQ(lookUp(variable, &value), OX_OK);
        auto text = textOf(value);
        release(value);
        return text;
    }
};

TEST_F(EnvironmentTest, UnsetVariableIsSuccessWithNoValue) {
    EXPECT_EQ(valueOf("AWS_ACCESS_KEY_ID"), std::nullopt);
}

TEST_F(EnvironmentTest, EmptyVariableIsAnEmptyValue) {
    env.set("AWS_ACCESS_KEY_ID", "");
    EXPECT_EQ(valueOf("AWS_ACCESS_KEY_ID"), "");
}

TEST_F(EnvironmentTest, NonAsciiValueComesBackAsTheSameUtf8) {
    env.set("AWS_DEFAULT_REGION", "Zürich-Москва");
    EXPECT_EQ(valueOf("AWS_DEFAULT_REGION"), "Zürich-Москва");
}

TEST_F(EnvironmentTest, ValueAtTheLimitIsTaken) {
    env.set("AWS_SESSION_TOKEN", std::string(s3::kMaxEnvValueChars, 't'));
    EXPECT_EQ(valueOf("AWS_SESSION_TOKEN")->size(), s3::kMaxEnvValueChars);
}

TEST_F(EnvironmentTest, OverLongValueIsRefusedAndLogged) {
    env.set("AWS_SESSION_TOKEN", std::string(s3::kMaxEnvValueChars + 1, 't'));
    oxtest::LogCapture log(ext->logger);
    OXU8String* value = nullptr;
    EXPECT_EQ(lookUp("AWS_SESSION_TOKEN", &value), OXS3_ENV_VALUE_TOO_LONG);
    EXPECT_EQ(value, nullptr);
    EXPECT_TRUE(log.contains("The value of OSENV.AWS_SESSION_TOKEN is longer than 65536 characters."));
}

TEST_F(EnvironmentTest, SnapshotKeepsEachVariableUnderItsEntryName) {
    const std::pair<const char*, const char*> expected[] = {
        {"AWS_CONFIG_FILE", "configFile"},
        {"AWS_SHARED_CREDENTIALS_FILE", "credentialsFile"},
        {"AWS_ACCESS_KEY_ID", "keyId"},
        {"AWS_SECRET_ACCESS_KEY", "accessKey"},
        {"AWS_SESSION_TOKEN", "sessionToken"},
        {"AWS_DEFAULT_REGION", "region"},
        {"AWS_DEFAULT_PROFILE", "profile"},
        {"AWS_ROLE_ARN", "awsRoleArn"},
        {"AWS_WEB_IDENTITY_TOKEN_FILE", "awsWebIdentityTokenFile"},
        {"QEL_USE_AWS_SERVICE_ACCOUNT", "awsUseAWSServiceAccount"},
    };
    for (const auto& [variable, entry] : expected) env.set(variable, std::string("value of ") + variable);
    OXDictionary snapshot = nullptr;
    ASSERT_EQ(s3::getAWSEnvironment(ext, pool, &snapshot), OX_OK);
    EXPECT_EQ(snapshot->count, 10);
    for (const auto& [variable, entry] : expected)
        EXPECT_EQ(textOf(s3::stringEntry(ext, snapshot, entry)), std::string("value of ") + variable) << entry;
    release(snapshot);
}

TEST_F(EnvironmentTest, SnapshotHoldsOnlyTheVariablesThatAreSet) {
    env.set("AWS_DEFAULT_REGION", "eu-west-1");
    env.set("AWS_DEFAULT_PROFILE", "");
    OXDictionary snapshot = nullptr;
    ASSERT_EQ(s3::getAWSEnvironment(ext, pool, &snapshot), OX_OK);
    EXPECT_EQ(snapshot->count, 2);
    EXPECT_EQ(textOf(s3::stringEntry(ext, snapshot, "profile")), "");
    release(snapshot);
}

TEST_F(EnvironmentTest, SnapshotFailsWholeOnAnOverLongValue) {
    env.set("AWS_ACCESS_KEY_ID", "AKIA");
    env.set("AWS_ROLE_ARN", std::string(s3::kMaxEnvValueChars + 1, 'a'));
    OXDictionary snapshot = nullptr;
    EXPECT_EQ(s3::getAWSEnvironment(ext, pool, &snapshot), OXS3_ENV_VALUE_TOO_LONG);
    EXPECT_EQ(snapshot, nullptr);
}

TEST_F(EnvironmentTest, SnapshotReleasesItsPartsWhenMemoryRunsOut) {
    for (const char* variable : oxtest::kSettingsVariables) env.set(variable, "x");
    OXStatus st = OX_NO_MEMORY;
    for (int64_t allowed = 0; st != OX_OK; ++allowed) {
        ASSERT_LT(allowed, 200);
        OXDictionary snapshot = nullptr;
        oxPoolFailAfter(pool, allowed);
        st = s3::getAWSEnvironment(ext, pool, &snapshot);
        oxPoolFailAfter(pool, -1);
        if (st != OX_OK) {
            EXPECT_EQ(st, OX_NO_MEMORY);
            EXPECT_EQ(snapshot, nullptr);
        }
        release(snapshot);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after " << allowed << " allocations";
    }
}

// ---- the home directory ----

class HomePathTest : public oxtest::ConfigFixture {};

TEST_F(HomePathTest, AWSFilesLieUnderTheHomeDirectory) {
    char* config = nullptr;
    char* credentials = nullptr;
    ASSERT_EQ(s3::defaultAWSConfigPaths(ext, pool, &config, &credentials), OX_OK);
    EXPECT_EQ(std::string(config), home / ".aws/config");
    EXPECT_EQ(std::string(credentials), home / ".aws/credentials");
    pool->memFree(pool, config);
    pool->memFree(pool, credentials);
}

TEST_F(HomePathTest, OwnFileLiesUnderTheHomeDirectory) {
    OXU8String* path = nullptr;
    ASSERT_EQ(s3::oxs3DefaultConfigPath(ext, pool, &path), OX_OK);
    EXPECT_EQ(textOf(path), home / ".oxs3.conf");
    release(path);
}

TEST_F(HomePathTest, NoPasswordEntryIsItsOwnStatusAndWritesNothing) {
    withoutHome();
    char sentinel = 0;
    char* config = &sentinel;
    char* credentials = &sentinel;
    EXPECT_EQ(s3::defaultAWSConfigPaths(ext, pool, &config, &credentials), OXS3_NO_HOME_DIRECTORY);
    EXPECT_EQ(config, &sentinel);
    EXPECT_EQ(credentials, &sentinel);
    OXU8String* path = nullptr;
    EXPECT_EQ(s3::oxs3DefaultConfigPath(ext, pool, &path), OXS3_NO_HOME_DIRECTORY);
    EXPECT_EQ(path, nullptr);
}

TEST_F(HomePathTest, OutOfMemoryLeavesNoPathBehind) {
    for (int64_t allowed = 0; allowed < 2; ++allowed) {
        char* config = nullptr;
        char* credentials = nullptr;
        oxPoolFailAfter(pool, allowed);
        EXPECT_EQ(s3::defaultAWSConfigPaths(ext, pool, &config, &credentials), OX_NO_MEMORY);
        oxPoolFailAfter(pool, -1);
        EXPECT_EQ(config, nullptr);
        EXPECT_EQ(pool->blocksInUse(pool), 0u);
    }
}

// Only the path is formed; nothing under the real home directory is read.
TEST_F(HomePathTest, WithoutOverrideThePasswordDatabaseNamesTheHome) {
    s3::useHomeDirectoryFromPasswordDatabase();
    const passwd* entry = getpwuid(geteuid());
    OXU8String* path = nullptr;
    OXStatus st = s3::oxs3DefaultConfigPath(ext, pool, &path);
    if (!entry) {
        EXPECT_EQ(st, OXS3_NO_HOME_DIRECTORY);
        return;
    }
    ASSERT_EQ(st, OX_OK);
    EXPECT_EQ(textOf(path), std::string(entry->pw_dir) + "/.oxs3.conf");
    release(path);
}

// ---- the AWS files ----

struct AWSResult {
    OXStatus status = OX_OK;
    std::optional<std::string> keyId, accessKey, sessionToken, region;
    int64_t line = -1;
};

struct AWSArgs {
    const char* profile = nullptr;
    const char* configPath = nullptr;
    const char* credentialsName = nullptr;
    const char* credentialsPath = nullptr;
};

class AWSFilesTest : public oxtest::ConfigFixture {
protected:
    AWSResult read(AWSArgs args = {}) {
        OXU8String profile{}, credentialsName{};
        const OXU8String* profileArg = staticText(profile, args.profile);
        const OXU8String* credentialsArg = staticText(credentialsName, args.credentialsName);
        OXU8String *keyId = nullptr, *accessKey = nullptr, *sessionToken = nullptr, *region = nullptr;
        AWSResult r;
        r.status = s3::getAWSConfigurationValues(ext, pool, profileArg, args.configPath, credentialsArg,
                                                 args.credentialsPath, &keyId, &accessKey, &sessionToken, &region,
                                                 &r.line);
        if (r.status != OX_OK) {
            EXPECT_EQ(keyId, nullptr);
            EXPECT_EQ(accessKey, nullptr);
            EXPECT_EQ(sessionToken, nullptr);
            EXPECT_EQ(region, nullptr);
        }
        r.keyId = textOf(keyId);
        r.accessKey = textOf(accessKey);
        r.sessionToken = textOf(sessionToken);
        r.region = textOf(region);
        for (OXU8String** s : {&keyId, &accessKey, &sessionToken, &region}) release(*s);
        return r;
    }

    const OXU8String* staticText(OXU8String& header, const char* value) {
        if (!value) return nullptr;
        ext->oxstring->initStaticU8(ext->oxstring, &header, value, std::strlen(value));
        return &header;
    }

    std::string writeConfig(std::string_view text) { return writeHome(".aws/config", text); }
    std::string writeCredentials(std::string_view text) { return writeHome(".aws/credentials", text); }
};

TEST_F(AWSFilesTest, NothingAnywhereGivesNoValuesAndNoError) {
    withoutHome();
    oxtest::LogCapture log(ext->logger);
    AWSResult r = read();
    EXPECT_EQ(r.status, OX_OK);
    EXPECT_FALSE(r.keyId || r.accessKey || r.sessionToken || r.region);
    EXPECT_TRUE(log.contains("No AWS config file specified and not found at default location."));
    EXPECT_TRUE(log.contains("No AWS credentials file specified and not found at default location."));
    EXPECT_TRUE(log.contains("getAWSConfigurationValues [ENTER]"));
    EXPECT_TRUE(log.contains("getAWSConfigurationValues [EXIT]: result=0x0"));
}


TEST_F(AWSFilesTest, EachValueComesFromTheFirstSourceThatHasIt) {
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    writeCredentials("[default]\naws_access_key_id = creds-key\naws_secret_access_key = creds-secret\n");
    writeConfig("[default]\naws_access_key_id = config-key\naws_secret_access_key = config-secret\n"
                "aws_session_token = config-token\nregion = config-region\n");
    AWSResult r = read();
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.keyId, "env-key");
    EXPECT_EQ(r.accessKey, "creds-secret");
    EXPECT_EQ(r.sessionToken, "config-token");
    EXPECT_EQ(r.region, "config-region");
}


TEST_F(AWSFilesTest, KeysBeforeAnySectionBelongToNoProfile) {
    writeConfig("region = loose\n[default]\naws_access_key_id = in-default\n");
    AWSResult r = read();
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, std::nullopt);
    EXPECT_EQ(r.keyId, "in-default");
}

TEST_F(AWSFilesTest, EnvironmentPathsReplaceTheDefaultFiles) {
    writeConfig("[default]\nregion = home-region\n");
    writeCredentials("[default]\naws_access_key_id = home-key\n");
    env.set("AWS_CONFIG_FILE", home.write("elsewhere/config", "[default]\nregion = env-file-region\n"));
    env.set("AWS_SHARED_CREDENTIALS_FILE", home.write("elsewhere/credentials", "[default]\naws_access_key_id = env-file-key\n"));
    AWSResult r = read();
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, "env-file-region");
    EXPECT_EQ(r.keyId, "env-file-key");
}

TEST_F(AWSFilesTest, ExplicitPathsReplaceTheEnvironmentPaths) {
    env.set("AWS_CONFIG_FILE", home.write("env/config", "[default]\nregion = env-file-region\n"));
    env.set("AWS_SHARED_CREDENTIALS_FILE", home.write("env/credentials", "[default]\naws_access_key_id = env-file-key\n"));
    std::string config = home.write("explicit/config", "[default]\nregion = explicit-region\n");
    std::string credentials = home.write("explicit/credentials", "[default]\naws_access_key_id = explicit-key\n");
    AWSResult r = read({.configPath = config.c_str(), .credentialsPath = credentials.c_str()});
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, "explicit-region");
    EXPECT_EQ(r.keyId, "explicit-key");
}

TEST_F(AWSFilesTest, EachFileReadIsLoggedWithItsPath) {
    std::string config = writeConfig("[default]\n");
    oxtest::LogCapture log(ext->logger);
    ASSERT_EQ(read().status, OX_OK);
    EXPECT_TRUE(log.contains("Reading configuration " + config));
}

// ---- what a failed read becomes, by file and by where its path came from ----

enum class Where { Explicit, Environment, Default };
enum class Content { BadLine, BadSection, Missing, Directory };

struct ReadFailure {
    const char* name;
    bool credentials;
    Where where;
    Content content;
    OXStatus expected;
};

void PrintTo(const ReadFailure& c, std::ostream* os) { *os << c.name; }

class ReadFailureTest : public AWSFilesTest, public ::testing::WithParamInterface<ReadFailure> {
protected:
    // The path the case reads, with the file in the state the case wants.
    std::string prepare(const ReadFailure& c) {
        std::string relative = c.where == Where::Default ? (c.credentials ? ".aws/credentials" : ".aws/config")
                                                         : "somewhere/file";
        switch (c.content) {
            case Content::BadLine: return home.write(relative, kBadLine);
            case Content::BadSection: return home.write(relative, kBadSection);
            case Content::Directory: return home.makeDirectory(relative);
            case Content::Missing: break;
        }
        return home / relative;
    }
};

TEST_P(ReadFailureTest, EndsTheCallWithItsStatusOrIsLeftOut) {
    const ReadFailure& c = GetParam();
    std::string path = prepare(c);
    AWSArgs args;
    if (c.where == Where::Explicit) (c.credentials ? args.credentialsPath : args.configPath) = path.c_str();
    if (c.where == Where::Environment) env.set(c.credentials ? "AWS_SHARED_CREDENTIALS_FILE" : "AWS_CONFIG_FILE", path);
    oxtest::LogCapture log(ext->logger);
    AWSResult r = read(args);
    EXPECT_EQ(r.status, c.expected);
    bool syntax = c.content == Content::BadLine || c.content == Content::BadSection;
    if (syntax) {
        EXPECT_EQ(r.line, 3);
        EXPECT_TRUE(log.contains("The configuration file " + path + " is malformed at line 3."));
    }
    if (r.status != OX_OK) {
        EXPECT_TRUE(log.mentions(c.credentials ? "AWS credentials read failed. 0x" : "AWS config read failed. 0x"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    ByFileAndPathKind, ReadFailureTest,
    ::testing::Values(
        ReadFailure{"ConfigExplicitBadLine", false, Where::Explicit, Content::BadLine, OXS3_AWS_CONFIG_MALFORMED},
        ReadFailure{"ConfigExplicitBadSection", false, Where::Explicit, Content::BadSection, OXS3_AWS_CONFIG_BAD_SECTION},
        ReadFailure{"ConfigExplicitMissing", false, Where::Explicit, Content::Missing, OXS3_AWS_CONFIG_UNREADABLE},
        ReadFailure{"ConfigExplicitDirectory", false, Where::Explicit, Content::Directory, OXS3_AWS_CONFIG_UNREADABLE},
        ReadFailure{"ConfigEnvironmentBadLine", false, Where::Environment, Content::BadLine, OXS3_AWS_CONFIG_MALFORMED},
        ReadFailure{"ConfigEnvironmentBadSection", false, Where::Environment, Content::BadSection, OXS3_AWS_CONFIG_MALFORMED},
        ReadFailure{"ConfigEnvironmentMissing", false, Where::Environment, Content::Missing, OX_OK},
        ReadFailure{"ConfigEnvironmentDirectory", false, Where::Environment, Content::Directory, OX_OK},
        ReadFailure{"ConfigDefaultBadLine", false, Where::Default, Content::BadLine, OXS3_AWS_CONFIG_MALFORMED},
        ReadFailure{"ConfigDefaultBadSection", false, Where::Default, Content::BadSection, OXS3_AWS_CONFIG_MALFORMED},
        ReadFailure{"ConfigDefaultMissing", false, Where::Default, Content::Missing, OX_OK},
        ReadFailure{"CredentialsExplicitBadLine", true, Where::Explicit, Content::BadLine, OXS3_AWS_CREDENTIALS_MALFORMED},
        ReadFailure{"CredentialsExplicitBadSection", true, Where::Explicit, Content::BadSection,
                    OXS3_AWS_CREDENTIALS_BAD_SECTION},
        ReadFailure{"CredentialsExplicitMissing", true, Where::Explicit, Content::Missing, OXS3_AWS_CREDENTIALS_UNREADABLE},
        ReadFailure{"CredentialsExplicitDirectory", true, Where::Explicit, Content::Directory,
                    OXS3_AWS_CREDENTIALS_UNREADABLE},
        ReadFailure{"CredentialsEnvironmentBadLine", true, Where::Environment, Content::BadLine,
                    OXS3_AWS_CREDENTIALS_MALFORMED},
        ReadFailure{"CredentialsEnvironmentBadSection", true, Where::Environment, Content::BadSection,
                    OXS3_AWS_CREDENTIALS_MALFORMED},
        ReadFailure{"CredentialsEnvironmentMissing", true, Where::Environment, Content::Missing, OX_OK},
        ReadFailure{"CredentialsDefaultBadLine", true, Where::Default, Content::BadLine, OXS3_AWS_CREDENTIALS_MALFORMED},
        ReadFailure{"CredentialsDefaultBadSection", true, Where::Default, Content::BadSection,
                    OXS3_AWS_CREDENTIALS_MALFORMED},
        ReadFailure{"CredentialsDefaultMissing", true, Where::Default, Content::Missing, OX_OK}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- profiles ----

class ProfileTest : public AWSFilesTest {
protected:
    void SetUp() override {
        AWSFilesTest::SetUp();
        writeConfig("[default]\nregion = config-default\n"
                    "[profile prod]\nregion = config-profile-prod\n"
                    "[prod]\nregion = config-bare-prod\n"
                    "[profile configonly]\nregion = config-only\n");
        writeCredentials("[default]\naws_access_key_id = creds-default\n"
                         "[prod]\naws_access_key_id = creds-prod\n"
                         "[other]\naws_access_key_id = creds-other\n");
    }
};

TEST_F(ProfileTest, NoProfileReadsTheDefaultSections) {
    AWSResult r = read();
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, "config-default");
    EXPECT_EQ(r.keyId, "creds-default");
}

TEST_F(ProfileTest, ProfileArgumentSelectsThePrefixedConfigSection) {
    AWSResult r = read({.profile = "prod"});
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, "config-profile-prod");
    EXPECT_EQ(r.keyId, "creds-prod");
}

TEST_F(ProfileTest, EnvironmentProfileSelectsTheConfigSectionWithoutPrefix) {
    env.set("AWS_DEFAULT_PROFILE", "prod");
    AWSResult r = read();
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, "config-bare-prod");
    EXPECT_EQ(r.keyId, "creds-prod");
}

TEST_F(ProfileTest, ProfileArgumentOutranksTheEnvironmentProfile) {
    env.set("AWS_DEFAULT_PROFILE", "other");
    AWSResult r = read({.profile = "prod"});
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, "config-profile-prod");
    EXPECT_EQ(r.keyId, "creds-prod");
}

TEST_F(ProfileTest, CredentialsNameChoosesTheCredentialsSectionAlone) {
    AWSResult r = read({.profile = "prod", .credentialsName = "other"});
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, "config-profile-prod");
    EXPECT_EQ(r.keyId, "creds-other");
}

TEST_F(ProfileTest, CredentialsNameThatDoesNotExistIsAnError) {
    oxtest::LogCapture log(ext->logger);
    AWSResult r = read({.credentialsName = "nope"});
    EXPECT_EQ(r.status, OXS3_PROFILE_NOT_FOUND);
    EXPECT_TRUE(log.mentions("The AWS profile nope was found in neither"));
}

TEST_F(ProfileTest, ProfileWithoutCredentialsTakesTheDefaultCredentials) {
    AWSResult r = read({.profile = "configonly"});
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, "config-only");
    EXPECT_EQ(r.keyId, "creds-default");
}


TEST_F(ProfileTest, UnknownProfileStillFindsTheDefaultCredentials) {
    AWSResult r = read({.profile = "nope"});
    ASSERT_EQ(r.status, OX_OK);
    EXPECT_EQ(r.region, std::nullopt);
    EXPECT_EQ(r.keyId, "creds-default");
}

TEST_F(ProfileTest, UnknownProfileWithoutDefaultCredentialsIsAnError) {
    writeCredentials("[prod]\naws_access_key_id = creds-prod\n");
    EXPECT_EQ(read({.profile = "nope"}).status, OXS3_PROFILE_NOT_FOUND);
    env.set("AWS_DEFAULT_PROFILE", "nope");
    EXPECT_EQ(read().status, OXS3_PROFILE_NOT_FOUND);
}

TEST_F(ProfileTest, NamedProfileWithoutAnyFilesIsAnError) {
    withoutHome();
    env.set("AWS_DEFAULT_PROFILE", "prod");
    EXPECT_EQ(read().status, OXS3_PROFILE_NOT_FOUND);
}

// ---- the service account ----

class ServiceAccountTest : public AWSFilesTest {
protected:
    void withRoleAndToken() {
        env.set("AWS_ROLE_ARN", "arn:aws:iam::123456789012:role/reader");
        env.set("AWS_WEB_IDENTITY_TOKEN_FILE", home.write("token", "eyJhbGciOiJSUzI1NiJ9.e30.sig"));
    }
};

TEST_F(ServiceAccountTest, SwitchedOffByFalseEvenWithRoleAndToken) {
    withRoleAndToken();
    env.set("QEL_USE_AWS_SERVICE_ACCOUNT", "false");
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(read().status, OX_OK);
    EXPECT_TRUE(log.contains("QEL_USE_AWS_SERVICE_ACCOUNT=false"));
    EXPECT_FALSE(log.contains("Found AWS_WEB_IDENTITY_TOKEN_FILE and AWS_ROLE_ARN."));
}

TEST_F(ServiceAccountTest, AnyOtherSwitchValueLeavesItOn) {
    withRoleAndToken();
    env.set("QEL_USE_AWS_SERVICE_ACCOUNT", "no");
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(read().status, OX_OK);
    EXPECT_TRUE(log.contains("Found AWS_WEB_IDENTITY_TOKEN_FILE and AWS_ROLE_ARN."));
    EXPECT_TRUE(log.contains("    Trying to acquire service account credentials."));
    EXPECT_TRUE(log.contains("AWS EKS Service Account credentials not available."));
}

TEST_F(ServiceAccountTest, NeedsBothRoleAndToken) {
    env.set("AWS_ROLE_ARN", "arn:aws:iam::123456789012:role/reader");
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(read().status, OX_OK);
    EXPECT_FALSE(log.mentions("AWS_WEB_IDENTITY_TOKEN_FILE"));
}


class ServiceAccountBridgeTest : public ServiceAccountTest {
protected:
    OXStatus exchange(const std::string& tokenPath, OXDictionary* out) {
        OXU8String arn{}, path{};
        return s3::getS3CredentialsForEKSServiceAccount(ext, pool, staticText(arn, "arn:aws:iam::1:role/r"),
                                                        staticText(path, tokenPath.c_str()), out);
    }
};

TEST_F(ServiceAccountBridgeTest, MissingTokenFileIsReportedAsItIs) {
    OXDictionary out = nullptr;
    EXPECT_EQ(exchange(home / "no-token", &out), OX_FILE_NOT_FOUND);
    EXPECT_EQ(out, nullptr);
}

TEST_F(ServiceAccountBridgeTest, FailedExchangeIsUnreadableCredentials) {
    oxtest::LogCapture log(ext->logger);
    OXDictionary out = nullptr;
    EXPECT_EQ(exchange(home.write("token", "jwt"), &out), OXS3_AWS_CREDENTIALS_UNREADABLE);
    EXPECT_EQ(out, nullptr);
    EXPECT_TRUE(log.contains("getS3CredentialsForEKSServiceAccount [ENTER]"));
    EXPECT_TRUE(log.contains("getS3CredentialsForEKSServiceAccount [EXIT]: result=0x8abfc88e"));
}

// ---- one value from the first source that has it ----

class PickTest : public oxtest::ConfigFixture {
protected:
    OXDictionary make(std::initializer_list<std::pair<const char*, const char*>> entries) {
        OXDictionary d = nullptr;
        EXPECT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, OX_DICT_CASE_SENSITIVE, &d), OX_OK);
        for (const auto& [name, value] : entries)
            EXPECT_EQ(d->setU8ValueU8(d, name, std::strlen(name), value, std::strlen(value)), OX_OK);
        return d;
    }
};

TEST_F(PickTest, ServiceAccountValuesComeLast) {
    OXDictionary environment = make({{"keyId", "env-key"}});
    OXDictionary credentials = make({{"aws_access_key_id", "creds-key"}, {"aws_secret_access_key", "creds-secret"}});
    OXDictionary config = make({{"aws_secret_access_key", "config-secret"}, {"aws_session_token", "config-token"}});
    OXDictionary account = make({{"keyId", "sa-key"}, {"accessKey", "sa-secret"}, {"sessionToken", "sa-token"},
                                 {"region", "sa-region"}});
    {
        s3::AWSValues values;
        s3::pickAWSValues(ext, {environment, credentials, config, account}, values);
        EXPECT_EQ(textOf(values.keyId.get()), "env-key");
        EXPECT_EQ(textOf(values.accessKey.get()), "creds-secret");
        EXPECT_EQ(textOf(values.sessionToken.get()), "config-token");
        EXPECT_EQ(textOf(values.region.get()), "sa-region");
    }
    for (OXDictionary* d : {&environment, &credentials, &config, &account}) release(*d);
}

TEST_F(PickTest, ValuesOutliveTheirSources) {
    OXDictionary credentials = make({{"aws_access_key_id", "creds-key"}});
    s3::AWSValues values;
    s3::pickAWSValues(ext, {nullptr, credentials, nullptr, nullptr}, values);
    release(credentials);
    EXPECT_EQ(textOf(values.keyId.get()), "creds-key");
    EXPECT_FALSE(values.accessKey);
}

// ---- resources ----

TEST_F(AWSFilesTest, ReleasesEverythingWhenMemoryRunsOutAtAnyStep) {
    env.set("AWS_SESSION_TOKEN", "env-token");
    env.set("AWS_DEFAULT_PROFILE", "prod");
    writeConfig("[prod]\nregion = config-region\n");
    writeCredentials("[prod]\naws_access_key_id = creds-key\naws_secret_access_key = creds-secret\n");
    for (int64_t allowed = 0; allowed < 120; ++allowed) {
        oxPoolFailAfter(pool, allowed);
        AWSResult r = read();  // checks that a failure leaves every output empty
        oxPoolFailAfter(pool, -1);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after " << allowed << " allocations";
        if (r.status == OX_OK && r.region && r.keyId) {
            EXPECT_EQ(r.sessionToken, "env-token");
            return;
        }
    }
    FAIL() << "never succeeded";
}

}  // namespace
