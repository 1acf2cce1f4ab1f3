// The AWS side of the settings: environment values, the home directory, the shared config and
// credentials files with their path and profile rules, the service account, and what each
// failed read becomes. Running out of memory is covered end to end in settings_test.cpp.
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
using Text = std::optional<std::string>;

// Key id, secret, session token and region, "-" when absent; or the status of a failure.
struct AWSResult {
    OXStatus status;
    std::string values;
    int64_t line;
};

struct AWSArgs {
    const char *profile = nullptr, *configPath = nullptr, *credentialsName = nullptr, *credentialsPath = nullptr;
};

class AWSConfigTest : public oxtest::ExtensionFixture {
protected:
    AWSResult read(AWSArgs args = {}) {
        OXU8String profile{}, credentialsName{};
        OXU8String* out[4] = {};
        AWSResult r{OX_OK, "", -1};
        r.status = s3::getAWSConfigurationValues(ext, pool, staticText(profile, args.profile), args.configPath,
                                                 staticText(credentialsName, args.credentialsName),
                                                 args.credentialsPath, &out[0], &out[1], &out[2], &out[3], &r.line);
        for (OXU8String*& s : out) {
            r.values.append(r.values.empty() ? "" : "|").append(textOf(s).value_or("-"));
            release(s);
        }
        if (r.status != OX_OK) {
            EXPECT_EQ(r.values, "-|-|-|-") << "outputs left behind by a failure";
            r.values = "failed " + std::to_string(r.status);
        }
        return r;
    }
    std::string values(AWSArgs args = {}) { return read(args).values; }
    const OXU8String* staticText(OXU8String& header, const char* value) {
        if (!value) return nullptr;
        ext->oxstring->initStaticU8(ext->oxstring, &header, value, std::strlen(value));
        return &header;
    }
};

TEST_F(AWSConfigTest, EnvironmentValuesComeBackAsUTF8UpToTheLimit) {
    const Text cases[] = {std::nullopt, "", "Zürich-Москва", std::string(s3::kMaxEnvValueChars, 't'),
                          std::string(s3::kMaxEnvValueChars + 1, 't')};
    const std::u32string name = U"OSENV.AWS_SESSION_TOKEN";
    for (const Text& c : cases) {
        env.set("AWS_SESSION_TOKEN", c ? c->c_str() : nullptr);
        const bool tooLong = c && c->size() > s3::kMaxEnvValueChars;
        oxtest::LogCapture log(ext->logger);
        OXU8String* value = nullptr;
        EXPECT_EQ(s3::getEnvVar(privateHost.handle(), ext->oxstring, pool, oxtest::chars(name), name.size(), &value),
                  tooLong ? OXStatus(OXS3_ENV_VALUE_TOO_LONG) : OXStatus(OX_OK));
        EXPECT_EQ(textOf(value), tooLong ? std::nullopt : c);
        EXPECT_EQ(log.contains("The value of OSENV.AWS_SESSION_TOKEN is longer than 65536 characters."), tooLong);
        release(value);
    }
}

// Only the path is formed; nothing under the real home directory is read.
TEST_F(AWSConfigTest, WithoutOverrideThePasswordDatabaseNamesTheHome) {
    s3::useHomeDirectoryFromPasswordDatabase();
    const passwd* entry = getpwuid(geteuid());
    OXU8String* path = nullptr;
    EXPECT_EQ(s3::oxs3DefaultConfigPath(ext, pool, &path), entry ? OXStatus(OX_OK) : OXStatus(OXS3_NO_HOME_DIRECTORY));
    EXPECT_EQ(textOf(path), entry ? Text(std::string(entry->pw_dir) + "/.oxs3.conf") : std::nullopt);
    release(path);
}

TEST_F(AWSConfigTest, ExplicitPathsOutrankEnvironmentPathsWhichOutrankTheDefaultFiles) {
    for (const char* where : {".aws", "env", "explicit"}) {
        write(std::string(where) + "/config", std::string("[default]\nregion = ") + where + "-region\n");
        write(std::string(where) + "/credentials", std::string("[default]\naws_access_key_id = ") + where + "-key\n");
    }
    EXPECT_EQ(values(), ".aws-key|-|-|.aws-region");
    env.set("AWS_CONFIG_FILE", at("env/config"));
    env.set("AWS_SHARED_CREDENTIALS_FILE", at("env/credentials"));
    EXPECT_EQ(values(), "env-key|-|-|env-region");
    const std::string config = at("explicit/config"), credentials = at("explicit/credentials");
    EXPECT_EQ(values({.configPath = config.c_str(), .credentialsPath = credentials.c_str()}),
              "explicit-key|-|-|explicit-region");
}

// A failed read of a file named explicitly ends the call with a status of its own; one found
// through the environment or by default ends it only for a syntax error and is otherwise left out.
TEST_F(AWSConfigTest, FailedReadsMapByFileAndWhereItsPathCameFrom) {
    enum Where { Explicit, Environment, Default };
    enum Content { BadLine, BadSection, Missing, Directory };
    const std::tuple<Where, Content, OXStatus, OXStatus> cases[] = {  // the config file's status, the credentials'
        {Explicit, BadLine, OXS3_AWS_CONFIG_MALFORMED, OXS3_AWS_CREDENTIALS_MALFORMED},
        {Explicit, BadSection, OXS3_AWS_CONFIG_BAD_SECTION, OXS3_AWS_CREDENTIALS_BAD_SECTION},
        {Explicit, Missing, OXS3_AWS_CONFIG_UNREADABLE, OXS3_AWS_CREDENTIALS_UNREADABLE},
        {Explicit, Directory, OXS3_AWS_CONFIG_UNREADABLE, OXS3_AWS_CREDENTIALS_UNREADABLE},
        {Environment, BadSection, OXS3_AWS_CONFIG_MALFORMED, OXS3_AWS_CREDENTIALS_MALFORMED},
        {Environment, Directory, OX_OK, OX_OK},
        {Default, BadLine, OXS3_AWS_CONFIG_MALFORMED, OXS3_AWS_CREDENTIALS_MALFORMED},
        {Default, Missing, OX_OK, OX_OK},
    };
    const char* const texts[] = {"[default]\naws_access_key_id = k\nthis line has no equals\n",
                                 "[default]\naws_access_key_id = k\n[unterminated\n"};
    for (const auto& [where, content, configStatus, credentialsStatus] : cases) {
        for (bool credentials : {false, true}) {
            SCOPED_TRACE(testing::Message() << "credentials=" << credentials << " where=" << where
                                            << " content=" << content);
            std::filesystem::remove_all(at(".aws"));
            std::filesystem::remove_all(at("file"));
            const char* relative = where != Default ? "file" : credentials ? ".aws/credentials" : ".aws/config";
            const std::string path = at(relative);
            if (content <= BadSection) write(relative, texts[content]);
            if (content == Directory) std::filesystem::create_directories(path);
            AWSArgs args;
            if (where == Explicit) (credentials ? args.credentialsPath : args.configPath) = path.c_str();
            const char* fromEnvironment = where == Environment ? path.c_str() : nullptr;
            env.set("AWS_CONFIG_FILE", credentials ? nullptr : fromEnvironment);
            env.set("AWS_SHARED_CREDENTIALS_FILE", credentials ? fromEnvironment : nullptr);
            oxtest::LogCapture log(ext->logger);
            AWSResult r = read(args);
            EXPECT_EQ(r.status, credentials ? credentialsStatus : configStatus);
            if (content <= BadSection) {
                EXPECT_EQ(r.line, 3);
                EXPECT_TRUE(log.contains("The configuration file " + path + " is malformed at line 3."));
            }
            const char* failed = credentials ? "AWS credentials read failed. 0x" : "AWS config read failed. 0x";
            EXPECT_TRUE(r.status == OX_OK || log.mentions(failed));
        }
    }
}

// The profile argument names the config section "profile <name>", the environment's profile the
// section "<name>"; both name the credentials section "<name>", which the credentials name overrides.
// Keys before any section belong to no profile.
TEST_F(AWSConfigTest, ProfileSelectsTheSectionsOfBothFiles) {
    write(".aws/config", "region = loose\n[default]\nregion = config-default\n"
                         "[profile prod]\nregion = config-profile-prod\n"
                         "[prod]\nregion = config-bare-prod\n[profile configonly]\nregion = config-only\n");
    write(".aws/credentials", "[default]\naws_access_key_id = creds-default\n[prod]\naws_access_key_id = creds-prod\n"
                              "[other]\naws_access_key_id = creds-other\n");
    const std::tuple<const char*, const char*, const char*, std::string> cases[] = {
        {nullptr, nullptr, nullptr, "creds-default|-|-|config-default"},
        {"prod", nullptr, nullptr, "creds-prod|-|-|config-profile-prod"},
        {nullptr, "prod", nullptr, "creds-prod|-|-|config-bare-prod"},
        {"prod", "other", nullptr, "creds-prod|-|-|config-profile-prod"},
        {"prod", nullptr, "other", "creds-other|-|-|config-profile-prod"},
        {"configonly", nullptr, nullptr, "creds-default|-|-|config-only"},
        {"nope", nullptr, nullptr, "creds-default|-|-|-"},
        {nullptr, nullptr, "nope", "failed " + std::to_string(OXS3_PROFILE_NOT_FOUND)},
    };
    for (const auto& [profile, environment, credentialsName, expected] : cases) {
        env.set("AWS_DEFAULT_PROFILE", environment);
        EXPECT_EQ(values({.profile = profile, .credentialsName = credentialsName}), expected)
            << (profile ? profile : "-") << "/" << (environment ? environment : "-") << "/"
            << (credentialsName ? credentialsName : "-");
    }
}

TEST_F(AWSConfigTest, NamedProfileFoundNowhereIsAnError) {
    write(".aws/credentials", "[prod]\naws_access_key_id = creds-prod\n");
    EXPECT_EQ(read({.profile = "nope"}).status, OXS3_PROFILE_NOT_FOUND);
    env.set("AWS_DEFAULT_PROFILE", "nope");
    EXPECT_EQ(read().status, OXS3_PROFILE_NOT_FOUND);
    withoutHome();
    env.set("AWS_DEFAULT_PROFILE", "prod");
    EXPECT_EQ(read().status, OXS3_PROFILE_NOT_FOUND);
}

TEST_F(AWSConfigTest, ServiceAccountIsTriedWithRoleAndTokenUnlessSwitchedOff) {
    env.set("AWS_ROLE_ARN", "arn:aws:iam::123456789012:role/reader");
    const std::string token = write("token", "eyJhbGciOiJSUzI1NiJ9.e30.sig");
    const std::tuple<const char*, bool, bool> cases[] = {  // the switch, a token, whether it is tried
        {nullptr, true, true}, {"False", true, false}, {"no", true, true}, {nullptr, false, false}};
    for (const auto& [use, withToken, tried] : cases) {
        env.set("QEL_USE_AWS_SERVICE_ACCOUNT", use);
        env.set("AWS_WEB_IDENTITY_TOKEN_FILE", withToken ? token.c_str() : nullptr);
        oxtest::LogCapture log(ext->logger);
        EXPECT_EQ(read().status, OX_OK);
        EXPECT_EQ(log.contains("Found AWS_WEB_IDENTITY_TOKEN_FILE and AWS_ROLE_ARN."), tried) << use;
        EXPECT_EQ(log.contains("AWS EKS Service Account credentials not available."), tried) << use;
    }
}

// Each value from the first source that has it: environment, credentials, config, service
// account; the values outlive their sources.
TEST_F(AWSConfigTest, PickTakesEachValueFromTheFirstSourceThatHasIt) {
    OXDictionary sources[4] = {};
    const std::vector<std::pair<const char*, const char*>> entries[4] = {
        {{"keyId", "env-key"}},
        {{"aws_access_key_id", "creds-key"}, {"aws_secret_access_key", "creds-secret"}},
        {{"aws_secret_access_key", "config-secret"}, {"aws_session_token", "config-token"}},
        {{"keyId", "sa-key"}, {"accessKey", "sa-secret"}, {"sessionToken", "sa-token"}, {"region", "sa-region"}},
    };
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(ext->oxdictionary->create(ext->oxdictionary, pool, OX_DICT_CASE_SENSITIVE, &sources[i]), OX_OK);
        for (const auto& [name, value] : entries[i])
            sources[i]->setU8ValueU8(sources[i], name, std::strlen(name), value, std::strlen(value));
    }
    s3::AWSValues values;
    s3::pickAWSValues(ext, {sources[0], sources[1], sources[2], sources[3]}, values);
    for (OXDictionary& d : sources) release(d);
    std::string picked;
    for (const auto* v : {&values.keyId, &values.accessKey, &values.sessionToken, &values.region})
        picked += textOf(v->get()).value_or("-") + "|";
    EXPECT_EQ(picked, "env-key|creds-secret|config-token|sa-region|");
}

}  // namespace
