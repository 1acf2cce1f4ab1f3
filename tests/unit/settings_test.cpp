// Settings as a caller gets them: the S3Settings record, the extension's own file, the merge of
// every source by precedence, the TLS rule, and the failures each step reports.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "conffixture.h"

namespace {

using oxtest::release;
using oxtest::textOf;

// ---- the record ----

class SettingsRecordTest : public oxtest::ConfigFixture {
protected:
    S3Settings* make(const char* keyId, const char* secret, const char* session, const char* region) {
        S3Settings* s = nullptr;
        EXPECT_EQ(s3::createS3Settings(ext->oxinstance, ext->oxstring, pool, keyId, secret, session, region, OX_TRUE,
                                       OX_FALSE, &s),
                  OX_OK);
        return s;
    }
};

TEST_F(SettingsRecordTest, CopiesTheGivenStringsAndLeavesTheOthersAbsent) {
    std::string key = "AKIA1";
    S3Settings* s = make(key.c_str(), nullptr, "token", nullptr);
    key = "changed";
    EXPECT_EQ(textOf(s->keyId), "AKIA1");
    EXPECT_EQ(s->secret, nullptr);
    EXPECT_EQ(textOf(s->session), "token");
    EXPECT_EQ(s->region, nullptr);
    EXPECT_TRUE(s->useSSL);
    EXPECT_FALSE(s->sslSpecified);
    EXPECT_EQ(s->pool, pool.get());
    release(s);
}


TEST_F(SettingsRecordTest, LastReleaseFreesTheRecordAndItsStrings) {
    S3Settings* s = make("k", "s", "t", "r");
    s3::retainS3Settings(s);
    EXPECT_EQ(s->instance.destroy(s), OX_OK);
    EXPECT_EQ(textOf(s->keyId), "k");  // still held once
    EXPECT_NE(pool->blocksInUse(pool), 0u);
    EXPECT_EQ(s->instance.destroy(s), OX_OK);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(SettingsRecordTest, EmptinessIgnoresTheRegion) {
    EXPECT_TRUE(s3::settingsAreEmpty(nullptr));
    struct Case {
        const char *keyId, *secret, *session, *region;
        bool empty;
    };
    for (const Case& c : {Case{nullptr, nullptr, nullptr, "us-east-1", true}, Case{nullptr, nullptr, nullptr, nullptr, true},
                          Case{"k", nullptr, nullptr, nullptr, false}, Case{nullptr, "s", nullptr, nullptr, false},
                          Case{nullptr, nullptr, "t", nullptr, false}}) {
        S3Settings* s = make(c.keyId, c.secret, c.session, c.region);
        EXPECT_EQ(s3::settingsAreEmpty(s), c.empty);
        release(s);
    }
}

TEST_F(SettingsRecordTest, FailedCopyReleasesTheRecord) {
    for (int64_t allowed = 0; allowed < 20; ++allowed) {
        S3Settings* s = nullptr;
        oxPoolFailAfter(pool, allowed);
        OXStatus st = s3::createS3Settings(ext->oxinstance, ext->oxstring, pool, "k", "s", "t", "r", OX_FALSE,
                                           OX_FALSE, &s);
        oxPoolFailAfter(pool, -1);
        if (st == OX_OK) {
            release(s);
            return;
        }
        EXPECT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(s, nullptr);
        EXPECT_EQ(pool->blocksInUse(pool), 0u);
    }
    FAIL() << "never succeeded";
}

// ---- the whole configuration ----

struct Configuration {
    OXStatus status = OX_OK;
    bool useSSL = false, sslSpecified = false;
    std::optional<std::string> keyId, secret, sessionToken, region, errorDetail;
    int64_t line = -1;
};

struct ConfigArgs {
    const char* ownPath = nullptr;
    const char* awsConfigPath = nullptr;
    const char* profile = nullptr;
    const char* awsCredentialsPath = nullptr;
    const char* credentialsProfile = nullptr;
};

class ConfigurationTest : public oxtest::ConfigFixture {
protected:
    Configuration read(ConfigArgs a = {}) {
        OXBoolean useSSL = OX_TRUE, sslSpecified = OX_TRUE;
        OXU8String *keyId = nullptr, *secret = nullptr, *token = nullptr, *region = nullptr, *detail = nullptr;
        Configuration c;
        c.status = ext->readConfig(ext, pool, a.ownPath, a.awsConfigPath, a.profile, a.awsCredentialsPath,
                                   a.credentialsProfile, &useSSL, &sslSpecified, &keyId, &secret, &token, &region,
                                   &detail, &c.line);
        if (c.status != OX_OK) {
            EXPECT_FALSE(keyId || secret || token || region) << "outputs left behind by a failure";
        }
        c.useSSL = useSSL;
        c.sslSpecified = sslSpecified;
        c.keyId = textOf(keyId);
        c.secret = textOf(secret);
        c.sessionToken = textOf(token);
        c.region = textOf(region);
        c.errorDetail = textOf(detail);
        for (OXU8String** s : {&keyId, &secret, &token, &region, &detail}) release(*s);
        return c;
    }

    std::string writeOwn(std::string_view text) { return writeHome(".oxs3.conf", text); }
};

TEST_F(ConfigurationTest, NothingAnywhereSucceedsWithEverythingAbsent) {
    withoutHome();
    Configuration c = read();
    ASSERT_EQ(c.status, OX_OK);
    EXPECT_FALSE(c.keyId || c.secret || c.sessionToken || c.region || c.errorDetail);
    EXPECT_FALSE(c.sslSpecified);
    EXPECT_FALSE(c.useSSL);
}

TEST_F(ConfigurationTest, OwnFileGivesItsFlatKeys) {
    writeOwn("keyId = own-key\nsecret = own-secret\nsessionToken = own-token\nregion = own-region\nssl = yes\n");
    Configuration c = read();
    ASSERT_EQ(c.status, OX_OK);
    EXPECT_EQ(c.keyId, "own-key");
    EXPECT_EQ(c.secret, "own-secret");
    EXPECT_EQ(c.sessionToken, "own-token");
    EXPECT_EQ(c.region, "own-region");
    EXPECT_TRUE(c.useSSL);
    EXPECT_TRUE(c.sslSpecified);
}

TEST_F(ConfigurationTest, OwnFileKeysInsideASectionAreNotRead) {
    writeOwn("[oxs3]\nkeyId = sectioned\n");
    Configuration c = read();
    ASSERT_EQ(c.status, OX_OK);
    EXPECT_EQ(c.keyId, std::nullopt);
}

TEST_F(ConfigurationTest, ExplicitOwnFileReplacesTheDefaultOne) {
    writeOwn("keyId = default-own\n");
    std::string path = home.write("mine.conf", "keyId = explicit-own\n");
    EXPECT_EQ(read({.ownPath = path.c_str()}).keyId, "explicit-own");
}

TEST_F(ConfigurationTest, EachValueIsMergedOnItsOwn) {
    writeOwn("region = own-region\n");
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    writeHome(".aws/credentials", "[default]\naws_secret_access_key = creds-secret\nregion = creds-region\n");
    writeHome(".aws/config", "[default]\naws_session_token = config-token\naws_access_key_id = config-key\n");
    Configuration c = read();
    ASSERT_EQ(c.status, OX_OK);
    EXPECT_EQ(c.region, "own-region");
    EXPECT_EQ(c.keyId, "env-key");
    EXPECT_EQ(c.secret, "creds-secret");
    EXPECT_EQ(c.sessionToken, "config-token");
}


TEST_F(ConfigurationTest, ProfileArgumentsReachTheAWSFiles) {
    writeHome(".aws/config", "[profile prod]\nregion = prod-region\n");
    writeHome(".aws/credentials", "[prod]\naws_access_key_id = prod-key\n[ci]\naws_access_key_id = ci-key\n");
    Configuration c = read({.profile = "prod", .credentialsProfile = "ci"});
    ASSERT_EQ(c.status, OX_OK);
    EXPECT_EQ(c.region, "prod-region");
    EXPECT_EQ(c.keyId, "ci-key");
}

struct SslCase {
    const char* name;
    const char* line;  // the "ssl" line of the own file, or null for none
    bool useSSL;
    bool sslSpecified;
};

void PrintTo(const SslCase& c, std::ostream* os) { *os << c.name; }

class OwnFileSslTest : public ConfigurationTest, public ::testing::WithParamInterface<SslCase> {};

TEST_P(OwnFileSslTest, SetsTheTLSChoice) {
    std::string path = home.write("own.conf", std::string("keyId = k\n") + (GetParam().line ? GetParam().line : ""));
    Configuration c = read({.ownPath = path.c_str()});
    ASSERT_EQ(c.status, OX_OK);
    EXPECT_EQ(c.useSSL, GetParam().useSSL);
    EXPECT_EQ(c.sslSpecified, GetParam().sslSpecified);
}

INSTANTIATE_TEST_SUITE_P(Values, OwnFileSslTest,
                         ::testing::Values(SslCase{"True", "ssl = true\n", true, true},
                                           SslCase{"Yes", "ssl = yes\n", true, true},
                                           SslCase{"YesInCapitals", "ssl = YES\n", true, true},
                                           SslCase{"False", "ssl = false\n", false, true},
                                           SslCase{"On", "ssl = on\n", false, true},
                                           SslCase{"One", "ssl = 1\n", false, true},
                                           SslCase{"Empty", "ssl =\n", false, true},
                                           SslCase{"Missing", nullptr, false, false}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- what each failure becomes ----

TEST_F(ConfigurationTest, AWSFailureIsReportedWithItsDetailAndLine) {
    std::string config = home.write("bad-config", "[default]\nregion = r\nnot a key line\n");
    Configuration c = read({.awsConfigPath = config.c_str()});
    EXPECT_EQ(c.status, OXS3_AWS_SETTINGS_FAILED);
    EXPECT_EQ(c.line, 3);
    ASSERT_TRUE(c.errorDetail);
    EXPECT_NE(c.errorDetail->find("The AWS config file could not be parsed."), std::string::npos) << *c.errorDetail;
    EXPECT_NE(c.errorDetail->find("0x8abfc87d"), std::string::npos) << *c.errorDetail;
}

TEST_F(ConfigurationTest, OverLongEnvironmentValueIsAnAWSFailure) {
    env.set("AWS_SECRET_ACCESS_KEY", std::string(s3::kMaxEnvValueChars + 1, 's'));
    Configuration c = read();
    EXPECT_EQ(c.status, OXS3_AWS_SETTINGS_FAILED);
    ASSERT_TRUE(c.errorDetail);
    EXPECT_NE(c.errorDetail->find("0x8abfc87c"), std::string::npos) << *c.errorDetail;
}

TEST_F(ConfigurationTest, MissingProfileIsAnAWSFailure) {
    Configuration c = read({.credentialsProfile = "absent"});
    EXPECT_EQ(c.status, OXS3_AWS_SETTINGS_FAILED);
    ASSERT_TRUE(c.errorDetail);
    EXPECT_NE(c.errorDetail->find("0x8abfc87b"), std::string::npos) << *c.errorDetail;
}

TEST_F(ConfigurationTest, MissingExplicitOwnFileReturnsTheReaderStatus) {
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    oxtest::LogCapture log(ext->logger);
    std::string path = home / "absent.conf";
    Configuration c = read({.ownPath = path.c_str()});
    EXPECT_EQ(c.status, OX_FILE_NOT_FOUND);
    EXPECT_EQ(c.errorDetail, std::nullopt);
    EXPECT_TRUE(log.contains("readOXS3Configuration returned result=0x803fc0a1"));
}

TEST_F(ConfigurationTest, MalformedExplicitOwnFileReportsTheLine) {
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    std::string path = home.write("own.conf", "keyId = k\n[broken\n");
    Configuration c = read({.ownPath = path.c_str()});
    EXPECT_EQ(c.status, OX_CONFIG_BAD_SECTION);
    EXPECT_EQ(c.line, 2);
}

TEST_F(ConfigurationTest, MissingDefaultOwnFileIsLeftOut) {
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    Configuration c = read();
    ASSERT_EQ(c.status, OX_OK);
    EXPECT_EQ(c.keyId, "env-key");
}

TEST_F(ConfigurationTest, UnreadableDefaultOwnFileIsReportedWithTheReaderStatus) {
    home.makeDirectory(".oxs3.conf");
    Configuration c = read();
    EXPECT_EQ(c.status, OXS3_CONFIG_FILE_UNREADABLE);
    ASSERT_TRUE(c.errorDetail);
    EXPECT_NE(c.errorDetail->find("0x803fc0a3"), std::string::npos) << *c.errorDetail;
}

TEST_F(ConfigurationTest, MalformedDefaultOwnFileIsReportedWithTheLine) {
    writeOwn("keyId = k\nno equals here\n");
    Configuration c = read();
    EXPECT_EQ(c.status, OXS3_CONFIG_FILE_UNREADABLE);
    EXPECT_EQ(c.line, 2);
    ASSERT_TRUE(c.errorDetail);
    EXPECT_NE(c.errorDetail->find("0x8bbff853"), std::string::npos) << *c.errorDetail;
}

TEST_F(ConfigurationTest, LogsEntryAndExit) {
    withoutHome();
    oxtest::LogCapture log(ext->logger);
    ASSERT_EQ(read().status, OX_OK);
    EXPECT_TRUE(log.contains("oxs3ReadConfiguration [ENTER]"));
    EXPECT_TRUE(log.contains("oxs3ReadConfiguration [EXIT]: result=0x0"));
}

TEST_F(ConfigurationTest, ReleasesEverythingWhenMemoryRunsOutAtAnyStep) {
    writeOwn("region = own-region\nssl = no\n");
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    writeHome(".aws/credentials", "[default]\naws_secret_access_key = creds-secret\n");
    writeHome(".aws/config", "[default]\naws_session_token = config-token\n");
    for (int64_t allowed = 0; allowed < 200; ++allowed) {
        oxPoolFailAfter(pool, allowed);
        Configuration c = read();
        oxPoolFailAfter(pool, -1);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after " << allowed << " allocations";
        if (c.status == OX_OK && c.region && c.secret && c.sessionToken) return;
    }
    FAIL() << "never succeeded";
}

// ---- user settings ----

struct UserArgs {
    const char* keyId = nullptr;
    const char* secret = nullptr;
    const char* session = nullptr;
    const char* region = nullptr;
    const char* ownPath = nullptr;
    const char* awsConfigPath = nullptr;
    bool useSSL = false;
    bool sslSpecified = false;
};

class UserSettingsTest : public ConfigurationTest {
protected:
    OXStatus get(const UserArgs& a, S3Settings** settings, OXU8String** detail = nullptr) {
        int64_t line = 0;
        return ext->getUserSettings(ext, pool, a.keyId, a.secret, a.session, a.region, a.ownPath, a.awsConfigPath,
                                    nullptr, nullptr, nullptr, a.useSSL, a.sslSpecified, settings, detail, &line);
    }
};

TEST_F(UserSettingsTest, NoSourcesGiveNoRecord) {
    withoutHome();
    S3Settings* s = nullptr;
    ASSERT_EQ(get({}, &s), OX_OK);
    EXPECT_EQ(s, nullptr);
}

TEST_F(UserSettingsTest, RegionAloneMakesNoRecord) {
    env.set("AWS_DEFAULT_REGION", "eu-west-1");
    S3Settings* s = nullptr;
    ASSERT_EQ(get({.region = "us-east-2"}, &s), OX_OK);
    EXPECT_EQ(s, nullptr);
}

TEST_F(UserSettingsTest, ExplicitSessionTokenAloneIsAnExplicitRecord) {
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    S3Settings* s = nullptr;
    ASSERT_EQ(get({.session = "explicit-token"}, &s), OX_OK);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(textOf(s->session), "explicit-token");
    EXPECT_EQ(s->keyId, nullptr);
    release(s);
}

TEST_F(UserSettingsTest, ExplicitRecordIsTakenWhole) {
    env.set("AWS_DEFAULT_REGION", "env-region");
    env.set("AWS_SECRET_ACCESS_KEY", "env-secret");
    S3Settings* s = nullptr;
    ASSERT_EQ(get({.keyId = "explicit-key"}, &s), OX_OK);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(textOf(s->keyId), "explicit-key");
    EXPECT_EQ(s->secret, nullptr);
    EXPECT_EQ(s->region, nullptr);
    release(s);
}


TEST_F(UserSettingsTest, ConfigurationFailureIsPassedOnWithItsDetail) {
    std::string config = home.write("bad", "[default\n");
    S3Settings* s = nullptr;
    OXU8String* detail = nullptr;
    EXPECT_EQ(get({.keyId = "k", .awsConfigPath = config.c_str()}, &s, &detail), OXS3_AWS_SETTINGS_FAILED);
    EXPECT_EQ(s, nullptr);
    ASSERT_NE(detail, nullptr);
    EXPECT_NE(textOf(detail)->find("0x8abfc87e"), std::string::npos);
    release(detail);
}

TEST_F(UserSettingsTest, ReleasesEverythingWhenMemoryRunsOut) {
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    for (int64_t allowed = 0; allowed < 200; ++allowed) {
        S3Settings* s = nullptr;
        oxPoolFailAfter(pool, allowed);
        OXStatus st = get({.session = "t", .region = "r"}, &s);
        oxPoolFailAfter(pool, -1);
        if (st != OX_OK) {
            EXPECT_EQ(s, nullptr);
        }
        release(s);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after " << allowed << " allocations";
        if (st == OX_OK) return;
    }
    FAIL() << "never succeeded";
}

// The record a caller gets, whichever source wins, by the source that holds the key id.
enum class Level { Explicit, OwnFile, Environment, CredentialsFile, ConfigFile };

class PrecedenceTest : public UserSettingsTest, public ::testing::WithParamInterface<Level> {
protected:
    // Every source from the given one downwards holds a key id naming itself.
    UserArgs prepare(Level top) {
        UserArgs args;
        if (top <= Level::Explicit) args.keyId = "explicit-key";
        if (top <= Level::OwnFile) writeOwn("keyId = own-key\n");
        if (top <= Level::Environment) env.set("AWS_ACCESS_KEY_ID", "env-key");
        if (top <= Level::CredentialsFile) writeHome(".aws/credentials", "[default]\naws_access_key_id = creds-key\n");
        writeHome(".aws/config", "[default]\naws_access_key_id = config-key\n");
        return args;
    }
};

TEST_P(PrecedenceTest, TheHighestSourcePresentWins) {
    constexpr const char* expected[] = {"explicit-key", "own-key", "env-key", "creds-key", "config-key"};
    UserArgs args = prepare(GetParam());
    S3Settings* s = nullptr;
    ASSERT_EQ(get(args, &s), OX_OK);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(textOf(s->keyId), expected[static_cast<int>(GetParam())]);
    EXPECT_EQ(s->instance.refCount, 1) << "the caller's reference is the only one";
    EXPECT_TRUE(s->instance.isType(s, "S3Settings"));
    release(s);
}

std::string levelName(const ::testing::TestParamInfo<Level>& info) {
    constexpr const char* names[] = {"Explicit", "OwnFile", "Environment", "CredentialsFile", "ConfigFile"};
    return names[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(FromEachSource, PrecedenceTest,
                         ::testing::Values(Level::Explicit, Level::OwnFile, Level::Environment, Level::CredentialsFile,
                                           Level::ConfigFile),
                         levelName);

struct TLSCase {
    const char* name;
    bool explicitKeys;   // the explicit record wins, else the own file's
    const char* fileSsl; // "ssl" in the own file, or null
    bool argSpecified;
    bool argUseSSL;
    bool useSSL;
    bool sslSpecified;
};

void PrintTo(const TLSCase& c, std::ostream* os) { *os << c.name; }

class TLSRuleTest : public UserSettingsTest, public ::testing::WithParamInterface<TLSCase> {};

TEST_P(TLSRuleTest, DecidesTLS) {
    const TLSCase& c = GetParam();
    std::string own = std::string("keyId = own-key\n") + (c.fileSsl ? std::string("ssl = ") + c.fileSsl + "\n" : "");
    writeOwn(own);
    S3Settings* s = nullptr;
    ASSERT_EQ(get({.keyId = c.explicitKeys ? "explicit-key" : nullptr, .useSSL = c.argUseSSL, .sslSpecified = c.argSpecified},
                  &s),
              OX_OK);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(textOf(s->keyId), c.explicitKeys ? "explicit-key" : "own-key");
    EXPECT_EQ(s->useSSL, c.useSSL);
    EXPECT_EQ(s->sslSpecified, c.sslSpecified);
    release(s);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TLSRuleTest,
    ::testing::Values(TLSCase{"OnWhenNothingSaysOtherwise", false, nullptr, false, false, true, false},
                      TLSCase{"FileTurnsItOff", false, "no", false, false, false, true},
                      TLSCase{"FileTurnsItOn", false, "yes", false, false, true, true},
                      TLSCase{"SpecifiedArgumentOverridesTheFile", false, "yes", true, false, false, true},
                      TLSCase{"SpecifiedArgumentTurnsItOn", false, "no", true, true, true, true},
                      TLSCase{"UnspecifiedArgumentIsIgnored", false, "no", false, true, false, true},
                      TLSCase{"ExplicitRecordDefaultsToOn", true, "no", false, false, true, false},
                      TLSCase{"ExplicitRecordTakesTheSpecifiedArgument", true, nullptr, true, false, false, true}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- the instance role ----

struct FakeRole {
    static inline int roleNameCalls = 0;
    static inline OXStatus roleStatus = OX_OK;
    static inline OXDictionary document = nullptr;

    static OXStatus roleName(OXS3Extension* ext, OX_POOL_S* pool, OXU8String** name) {
        ++roleNameCalls;
        return ext->oxstring->createU8(ext->oxstring, pool, "reader", 6, OX_STR_COPY, name);
    }
    static OXStatus iamRole(OXS3Extension*, UTF8CStr name, OX_POOL_S* pool, OXDictionary* role) {
        if (roleStatus != OX_OK) return roleStatus;
        if (std::string_view(name) != "reader") return OX_NOT_FOUND;
        return document->clone(document, pool, role);
    }
};

class InstanceRoleTest : public UserSettingsTest {
protected:
    void SetUp() override {
        UserSettingsTest::SetUp();
        FakeRole::roleNameCalls = 0;
        FakeRole::roleStatus = OX_OK;
        ASSERT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, OX_DICT_CASE_SENSITIVE, &FakeRole::document), OX_OK);
        set("AccessKeyId", "ASIAROLE");
        set("SecretAccessKey", "role-secret");
        OXDictionary notAString = nullptr;
        ASSERT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, 0, &notAString), OX_OK);
        FakeRole::document->setValueU8(FakeRole::document, "Token", 5, &notAString->instance);
        release(notAString);
        ext->isEC2Host = OX_TRUE;
        ext->getEC2RoleName = FakeRole::roleName;
        ext->getIAMRole = FakeRole::iamRole;
    }
    void TearDown() override {
        ext->isEC2Host = OX_FALSE;
        ext->getEC2RoleName = nullptr;
        ext->getIAMRole = nullptr;
        release(FakeRole::document);
        UserSettingsTest::TearDown();
    }
    void set(const char* name, const char* value) {
        FakeRole::document->setU8ValueU8(FakeRole::document, name, std::strlen(name), value, std::strlen(value));
    }
};

TEST_F(InstanceRoleTest, StringItemsOfTheRoleDocumentFillTheRecord) {
    S3Settings* s = nullptr;
    ASSERT_EQ(s3::getS3CredentialsFromEC2Role(ext, pool, &s), OX_OK);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(textOf(s->keyId), "ASIAROLE");
    EXPECT_EQ(textOf(s->secret), "role-secret");
    EXPECT_EQ(s->session, nullptr);
    EXPECT_EQ(s->region, nullptr);
    release(s);
}

TEST_F(InstanceRoleTest, OffEC2NothingIsAsked) {
    ext->isEC2Host = OX_FALSE;
    S3Settings* s = nullptr;
    ASSERT_EQ(s3::getS3CredentialsFromEC2Role(ext, pool, &s), OX_OK);
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(FakeRole::roleNameCalls, 0);
}

TEST_F(InstanceRoleTest, UserSettingsAskTheRoleButDoNotReturnIt) {
    withoutHome();
    S3Settings* s = nullptr;
    ASSERT_EQ(get({}, &s), OX_OK);
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(FakeRole::roleNameCalls, 1);
}

TEST_F(InstanceRoleTest, RoleFailureEndsTheUserSettingsCall) {
    FakeRole::roleStatus = OX_HTTP_NOT_FOUND;
    S3Settings* s = nullptr;
    EXPECT_EQ(get({.keyId = "k"}, &s), OX_HTTP_NOT_FOUND);
    EXPECT_EQ(s, nullptr);
}

}  // namespace
