// Settings as a caller gets them: the S3Settings record, the extension's own file, the merge of
// every source by precedence, the TLS rule, and the failures each step reports.
#include <gtest/gtest.h>

#include <string>

#include "conffixture.h"

namespace {

using oxtest::release;
using oxtest::textOf;

// Key id, secret, session token and region ("-" when absent), then TLS: "on" or "off", with "*"
// when a source specified it.
std::string values(const OXU8String* keyId, const OXU8String* secret, const OXU8String* token,
                   const OXU8String* region, bool useSSL, bool sslSpecified) {
    std::string out;
    for (const OXU8String* s : {keyId, secret, token, region}) out += textOf(s).value_or("-") + "|";
    return out + (useSSL ? "on" : "off") + (sslSpecified ? "*" : "");
}

std::string values(const S3Settings* s) {
    return s ? values(s->keyId, s->secret, s->session, s->region, s->useSSL, s->sslSpecified) : "no record";
}

struct Configuration {
    OXStatus status;
    std::string values;
    std::optional<std::string> detail;
    int64_t line;
};

struct Args {
    const char *keyId = nullptr, *secret = nullptr, *session = nullptr, *region = nullptr;
    const char *ownPath = nullptr, *awsConfigPath = nullptr, *profile = nullptr, *credentialsPath = nullptr,
               *credentialsProfile = nullptr;
    bool useSSL = false, sslSpecified = false;
};

class SettingsTest : public oxtest::ExtensionFixture {
protected:
    Configuration read(const Args& a = {}) {
        OXBoolean useSSL = OX_TRUE, sslSpecified = OX_TRUE;
        OXU8String *keyId = nullptr, *secret = nullptr, *token = nullptr, *region = nullptr, *detail = nullptr;
        int64_t line = -1;
        OXStatus st = ext->readConfig(ext, pool, a.ownPath, a.awsConfigPath, a.profile, nullptr, a.credentialsProfile,
                                      &useSSL, &sslSpecified, &keyId, &secret, &token, &region, &detail, &line);
        Configuration c{st, values(keyId, secret, token, region, useSSL, sslSpecified), textOf(detail), line};
        for (OXU8String** s : {&keyId, &secret, &token, &region, &detail}) release(*s);
        return c;
    }
    // The record's values, or the status when the call fails.
    std::string get(const Args& a, OXU8String** detail = nullptr) {
        S3Settings* s = nullptr;
        int64_t line = 0;
        OXStatus st =
            ext->getUserSettings(ext, pool, a.keyId, a.secret, a.session, a.region, a.ownPath, a.awsConfigPath,
                                 a.profile, a.credentialsPath, a.credentialsProfile, a.useSSL, a.sslSpecified, &s,
                                 detail, &line);
        std::string out = st == OX_OK ? values(s) : "failed " + std::to_string(st) + (s ? " with a record" : "");
        if (s) {
            EXPECT_EQ(s->instance.refCount, 1) << "the caller's reference is the only one";
        }
        release(s);
        return out;
    }
    std::string writeOwn(std::string_view text) { return write(".oxs3.conf", text); }
};

TEST_F(SettingsTest, RecordCopiesItsStringsAndOnlyTheLastReleaseFreesThem) {
    std::string key = "AKIA1";
    S3Settings* s = nullptr;
    ASSERT_EQ(s3::createS3Settings(ext->oxinstance, ext->oxstring, pool, key.c_str(), nullptr, "token", nullptr,
                                   OX_TRUE, OX_FALSE, &s),
              OX_OK);
    key = "changed";
    s3::retainS3Settings(s);
    EXPECT_EQ(s->instance.destroy(s), OX_OK);
    EXPECT_EQ(values(s), "AKIA1|-|token|-|on");
    EXPECT_TRUE(s->instance.isType(s, "S3Settings"));
    EXPECT_EQ(s->instance.destroy(s), OX_OK);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(SettingsTest, ExplicitOwnFileReplacesTheDefaultAndGivesOnlyItsFlatKeys) {
    writeOwn("keyId = default-own\n");
    std::string path = write("mine.conf", "secret = s\nregion = own-region\nssl = yes\n[oxs3]\nsessionToken = x\n");
    EXPECT_EQ(read({.ownPath = path.c_str()}).values, "-|s|-|own-region|on*");
}

TEST_F(SettingsTest, EachValueIsMergedOnItsOwnAndProfilesReachTheAWSFiles) {
    writeOwn("region = own-region\n");
    env.set("AWS_SESSION_TOKEN", "env-token");
    write(".aws/credentials", "[default]\naws_secret_access_key = creds-secret\nregion = creds-region\n"
                              "[ci]\naws_secret_access_key = ci-secret\n");
    write(".aws/config", "[default]\naws_access_key_id = config-key\naws_session_token = config-token\n"
                         "[profile prod]\naws_access_key_id = prod-key\n");
    EXPECT_EQ(read().values, "config-key|creds-secret|env-token|own-region|off");
    EXPECT_EQ(read({.profile = "prod", .credentialsProfile = "ci"}).values,
              "prod-key|ci-secret|env-token|own-region|off");
}

// What each failure becomes, from readConfig and passed on by getUserSettings; the environment
// always holds a key id.
TEST_F(SettingsTest, FailuresReportTheirStatusDetailAndLine) {
    const std::string badAWS = write("bad-aws", "[default]\nregion = r\nnot a key line\n"),
                      badOwn = write("bad-own", "keyId = k\n[broken\n"), absent = at("absent");
    struct Case {
        Args args;
        const char* defaultOwn;  // the default own file's text, "/" for a directory, null for none
        OXStatus status;
        int64_t line;        // 0: not checked
        const char* detail;  // a part of the detail, or null for none
    };
    const Case cases[] = {
        {{.awsConfigPath = badAWS.c_str()}, nullptr, OXS3_AWS_SETTINGS_FAILED, 3, "0x8abfc87d"},
        {{.credentialsProfile = "absent"}, nullptr, OXS3_AWS_SETTINGS_FAILED, 0, "0x8abfc87b"},
        {{.ownPath = absent.c_str()}, nullptr, OX_FILE_NOT_FOUND, 0, nullptr},
        {{.ownPath = badOwn.c_str()}, nullptr, OX_CONFIG_BAD_SECTION, 2, nullptr},
        {{}, nullptr, OX_OK, 0, nullptr},  // a missing default own file is left out
        {{}, "/", OXS3_CONFIG_FILE_UNREADABLE, 0, "0x803fc0a3"},
        {{}, "keyId = k\nno equals here\n", OXS3_CONFIG_FILE_UNREADABLE, 2, "0x8bbff853"},
    };
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        std::filesystem::remove_all(at(".oxs3.conf"));
        if (c.defaultOwn && *c.defaultOwn == '/') std::filesystem::create_directories(at(".oxs3.conf"));
        if (c.defaultOwn && *c.defaultOwn != '/') writeOwn(c.defaultOwn);
        Configuration r = read(c.args);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.values, c.status == OX_OK ? "env-key|-|-|-|off" : "-|-|-|-|off") << "outputs after a failure";
        EXPECT_TRUE(!c.line || r.line == c.line) << r.line;
        EXPECT_EQ(r.detail.has_value(), c.detail != nullptr);
        EXPECT_NE(r.detail.value_or("").find(c.detail ? c.detail : ""), std::string::npos) << r.detail.value_or("");
        OXU8String* detail = nullptr;
        EXPECT_EQ(get(c.args, &detail), c.status == OX_OK ? "env-key|-|-|-|on" : "failed " + std::to_string(c.status));
        EXPECT_EQ(textOf(detail), r.detail);
        release(detail);
    }
}

// Each allocation failing in turn: no leak and no record, and a failure rather than a partial
// record (every file is named explicitly, so none is silently left out).
TEST_F(SettingsTest, UserSettingsReleaseEverythingWhenMemoryRunsOutAtAnyStep) {
    const std::string own = write("own", "region = own-region\nssl = no\n"),
                      config = write("config", "[profile prod]\naws_session_token = config-token\n"),
                      credentials = write("credentials", "[prod]\naws_secret_access_key = creds-secret\n");
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    env.set("AWS_ROLE_ARN", "arn:aws:iam::123456789012:role/reader");
    env.set("AWS_WEB_IDENTITY_TOKEN_FILE", write("token", "jwt"));
    const Args args{.region = "explicit-region", .ownPath = own.c_str(), .awsConfigPath = config.c_str(),
                    .profile = "prod", .credentialsPath = credentials.c_str()};  // a region alone is no record
    for (int64_t allowed = 0; allowed < 400; ++allowed) {
        oxPoolFailAfter(pool, allowed);
        std::string got = get(args);
        oxPoolFailAfter(pool, -1);
        ASSERT_EQ(pool->blocksInUse(pool), 0u) << "after " << allowed << " allocations";
        if (got == "env-key|creds-secret|config-token|own-region|off*") return;
        ASSERT_TRUE(got.starts_with("failed ") && got.find("with a record") == got.npos) << got;
    }
    FAIL() << "never succeeded";
}

TEST_F(SettingsTest, ExplicitRecordNeedsACredentialAndIsThenTakenWhole) {
    withoutHome();
    env.set("AWS_DEFAULT_REGION", "env-region");
    EXPECT_EQ(get({.region = "explicit-region"}), "no record");
    env.set("AWS_SECRET_ACCESS_KEY", "env-secret");
    EXPECT_EQ(get({.keyId = "explicit-key"}), "explicit-key|-|-|-|on");
    EXPECT_EQ(get({.session = "explicit-token"}), "-|-|explicit-token|-|on");
    EXPECT_EQ(get({.region = "explicit-region"}), "-|env-secret|-|env-region|on");
}

// Sources are added from the lowest up; each new one must win over all those below it.
TEST_F(SettingsTest, TheHighestSourcePresentWins) {
    Args args;
    EXPECT_EQ(get(args), "no record");
    write(".aws/config", "[default]\naws_access_key_id = config-key\n");
    EXPECT_EQ(get(args), "config-key|-|-|-|on");
    write(".aws/credentials", "[default]\naws_access_key_id = creds-key\n");
    EXPECT_EQ(get(args), "creds-key|-|-|-|on");
    env.set("AWS_ACCESS_KEY_ID", "env-key");
    EXPECT_EQ(get(args), "env-key|-|-|-|on");
    writeOwn("keyId = own-key\n");
    EXPECT_EQ(get(args), "own-key|-|-|-|on");
    args.keyId = "explicit-key";
    EXPECT_EQ(get(args), "explicit-key|-|-|-|on");
}

// TLS is on unless a source turns it off: a specified argument, else the own file's "ssl" (true or
// yes in any case turns it on, anything else off), which an explicit record ignores.
TEST_F(SettingsTest, TLSRuleAndTheOwnFileSwitch) {
    struct Case {
        bool explicitKeys;
        const char* fileSsl;  // "ssl" in the own file, or null
        bool argSpecified, argUseSSL;
        const char* tls;
    };
    const Case cases[] = {
        {false, nullptr, false, false, "on"}, {false, "no", false, false, "off*"},  {false, "YES", false, false, "on*"},
        {false, "True", false, false, "on*"}, {false, "on", false, false, "off*"},  {false, "", false, false, "off*"},
        {false, "yes", true, false, "off*"},  {false, "no", true, true, "on*"},     {false, "no", false, true, "off*"},
        {true, "no", false, false, "on"},     {true, nullptr, true, false, "off*"},
    };
    for (const Case& c : cases) {
        writeOwn(std::string("keyId = own-key\n") + (c.fileSsl ? std::string("ssl = ") + c.fileSsl + "\n" : ""));
        Args args{.keyId = c.explicitKeys ? "explicit-key" : nullptr, .useSSL = c.argUseSSL,
                  .sslSpecified = c.argSpecified};
        EXPECT_EQ(get(args), (c.explicitKeys ? "explicit-key|-|-|-|" : "own-key|-|-|-|") + std::string(c.tls))
            << "ssl=" << (c.fileSsl ? c.fileSsl : "(none)") << " argument " << c.argSpecified << c.argUseSSL;
    }
}

// String items of the role document fill a record, on EC2 only; user settings ask for the role
// without returning it, and stop on its failure.
TEST_F(SettingsTest, InstanceRoleFillsARecordOnEC2AndItsFailureEndsUserSettings) {
    static int roleNameCalls = 0;
    static OXStatus roleStatus = OX_OK;
    static OXDictionary document = nullptr;
    OXDictionary notAString = nullptr;
    ASSERT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, OX_DICT_CASE_SENSITIVE, &document), OX_OK);
    ASSERT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, 0, &notAString), OX_OK);
    document->setU8ValueU8(document, "AccessKeyId", 11, "ASIAROLE", 8);
    document->setU8ValueU8(document, "SecretAccessKey", 15, "role-secret", 11);
    document->setValueU8(document, "Token", 5, &notAString->instance);
    release(notAString);
    ext->isEC2Host = OX_TRUE;
    ext->getEC2RoleName = [](OXS3Extension* ext, OX_POOL_S* pool, OXU8String** name) {
        ++roleNameCalls;
        return ext->oxstring->createU8(ext->oxstring, pool, "reader", 6, OX_STR_COPY, name);
    };
    ext->getIAMRole = [](OXS3Extension*, UTF8CStr name, OX_POOL_S* pool, OXDictionary* role) {
        if (roleStatus != OX_OK) return roleStatus;
        return std::string_view(name) == "reader" ? document->clone(document, pool, role) : OXStatus(OX_NOT_FOUND);
    };
    S3Settings* s = nullptr;
    ASSERT_EQ(s3::getS3CredentialsFromEC2Role(ext, pool, &s), OX_OK);
    EXPECT_EQ(values(s), "ASIAROLE|role-secret|-|-|off");
    release(s);
    withoutHome();
    EXPECT_EQ(get({}), "no record");
    EXPECT_EQ(roleNameCalls, 2);
    roleStatus = OX_HTTP_NOT_FOUND;
    EXPECT_EQ(get({.keyId = "k"}), "failed " + std::to_string(OX_HTTP_NOT_FOUND));
    ext->isEC2Host = OX_FALSE;
    EXPECT_EQ(get({.keyId = "k"}), "k|-|-|-|on");
    EXPECT_EQ(roleNameCalls, 3) << "asked off EC2";
    release(document);
}

}  // namespace
